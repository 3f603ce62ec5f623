// Sessions, and effects that only a restart shows.
#include "Assumptions.h"

#include "common/KzComn_Process.h"

#include <wtsapi32.h>

using namespace KzCommon;

namespace Platform {

namespace {

/// The rights of every signed-in user on a file that an administrator creates in the drive's root; empty if the current
/// user may not create one.
Text RightsBelowDrive(const Text&, DWORD)
{
    const Text tstrPath = Process::WindowsFolder().substr(0, 3) + L"brevant-trial.tmp";
    if (!UniqueFile(::CreateFileW(tstrPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr))) return {};
    const Text tstrList = SecurityOf(tstrPath, DACL_SECURITY_INFORMATION);
    ::DeleteFileW(tstrPath.c_str());
    const bool bModify = tstrList.find(L"0x1301bf;;;AU)") != Text::npos || tstrList.find(L"FA;;;AU)") != Text::npos;
    return bModify ? L"every user may change it" : L"users may not change it";
}

// -- sessions --

bool Message(DWORD dwSession, DWORD& dwAnswer)
{
    wchar_t szText[] = L"Trial";
    constexpr DWORD kBytes = sizeof(szText) - sizeof(wchar_t), kSeconds = 3;
    return ::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, dwSession, szText, kBytes, szText, kBytes, MB_OK, kSeconds,
                             &dwAnswer, TRUE);
}

Text MessageWithoutSession(const Text&, DWORD)
{
    constexpr DWORD kUnusedSession = 54321;
    DWORD dwAnswer = 0;
    return Message(kUnusedSession, dwAnswer) ? L"done" : L"refused";
}

/// False also when the session's state is unknown.
bool IsWithoutUser(DWORD dwSession)
{
    wchar_t* szUser = nullptr;
    DWORD cb = 0;
    if (!::WTSQuerySessionInformationW(WTS_CURRENT_SERVER_HANDLE, dwSession, WTSUserName, &szUser, &cb)) return false;
    const bool bEmpty = *szUser == L'\0';
    ::WTSFreeMemory(szUser);
    return bEmpty;
}

/// Not observed without a console session, or when a user would have to answer.
Text MessageWithoutUser(const Text&, DWORD)
{
    const DWORD dwSession = ::WTSGetActiveConsoleSessionId();
    if (dwSession == 0xFFFFFFFF || !IsWithoutUser(dwSession)) return {};
    DWORD dwAnswer = 0;
    if (!Message(dwSession, dwAnswer)) return Outcome(FALSE);
    return dwAnswer == IDTIMEOUT ? L"waits for an answer" : L"answered by itself (" + std::to_wstring(dwAnswer) + L")";
}

// -- delayed moves and deletions --

constexpr DWORD kNewIsReadOnly = 1, kOldIsReadOnly = 2;

void DelayReplacement(const Text& tstrFolder, DWORD dwReadOnly)
{
    const auto attributes = [&](DWORD dwWhich) {
        return dwReadOnly == dwWhich ? DWORD{FILE_ATTRIBUTE_READONLY} : 0;
    };
    const Text tstrOld = WriteFileAt(tstrFolder + L"old", "old", attributes(kOldIsReadOnly));
    Delay(WriteFileAt(tstrFolder + L"new", "new", attributes(kNewIsReadOnly)), tstrOld.c_str());
}

Text ContentOfOld(const Text& tstrFolder, DWORD)
{
    return ReadFileAt(tstrFolder + L"old") == "new" ? L"arrives" : L"does not arrive";
}

enum { eFolderOnly, eFileToo, eLink };

/// Schedules the deletion of a folder with a file in it, of both, or of a link to such a folder. (Wine reports success
/// without creating a link.)
void DelayDeletion(const Text& tstrFolder, DWORD dwWhat)
{
    const Text tstrReal = tstrFolder + (dwWhat == eLink ? L"target" : L"folder"), tstrDeleted = tstrFolder + L"folder";
    ::CreateDirectoryW(tstrReal.c_str(), nullptr);
    const Text tstrFile = WriteFileAt(tstrReal + L"\\a", "a");
    Require(
        dwWhat != eLink || ::CreateSymbolicLinkW(tstrDeleted.c_str(), tstrReal.c_str(), SYMBOLIC_LINK_FLAG_DIRECTORY),
        L"links can be created (run it as an administrator)");
    if (dwWhat == eFileToo) Delay(tstrFile);
    Delay(tstrDeleted);
}

Text IsFolderGone(const Text& tstrFolder, DWORD dwWhat)
{
    const Text tstrGone = Exists(tstrFolder + L"folder") ? L"there" : L"gone";
    if (dwWhat != eLink) return tstrGone;
    return tstrGone + (ReadFileAt(tstrFolder + L"target\\a") == "a" ? L", its target there" : L", its target, too");
}

constexpr unsigned kMoves = 1000, kTargets = 10;

Text SourceOf(const Text& tstrFolder, unsigned uMove)
{
    return tstrFolder + L"source" + std::to_wstring(uMove);
}

Text TargetOf(const Text& tstrFolder, unsigned uMove)
{
    return tstrFolder + L"target" + std::to_wstring(uMove % kTargets);
}

/// Replaces each target a hundred times: it contains the last source only if the order is kept.
void DelayThousand(const Text& tstrFolder, DWORD)
{
    for (unsigned uMove = 0; uMove < kMoves; ++uMove)
        Delay(WriteFileAt(SourceOf(tstrFolder, uMove), std::to_string(uMove)), TargetOf(tstrFolder, uMove).c_str());
}

Text CountMoved(const Text& tstrFolder, DWORD)
{
    unsigned cMoved = 0, cLast = 0;
    for (unsigned uMove = 0; uMove < kMoves; ++uMove) {
        cMoved += Exists(SourceOf(tstrFolder, uMove)) ? 0 : 1;
        cLast += ReadFileAt(TargetOf(tstrFolder, uMove)) == std::to_string(uMove) ? 1 : 0;
    }
    if (cMoved == kMoves && cLast == kTargets) return L"all, in order";
    return std::to_wstring(cMoved) + L" moves, " + std::to_wstring(cLast) + L" targets with the last one";
}

// -- run-once commands --

constexpr DWORD kElevated = 1;  // instead of the number of characters

/// Registers a command for the next logon under a unique name.
void AddRunOnce(DWORD dwName, const Text& tstrCommand)
{
    Require(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce",
                              (L"brevant-trial-" + std::to_wstring(dwName)).c_str(), REG_SZ, tstrCommand.c_str(),
                              static_cast<DWORD>((tstrCommand.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS,
            L"the RunOnce key can be written (run it as an administrator)");
}

void RunOnce(const Text& tstrFolder, DWORD cchCommand)
{
    Text tstrCommand = L"cmd.exe /c echo ran>\"" + tstrFolder + L"ran.txt\"";
    tstrCommand.insert(11, Text(cchCommand > tstrCommand.size() ? cchCommand - tstrCommand.size() : 0, L' '));
    AddRunOnce(cchCommand, tstrCommand);
}

constexpr char kManifest[] = R"(<assembly xmlns="urn:schemas-microsoft-com:asm.v1" manifestVersion="1.0">)"
                             R"(<trustInfo xmlns="urn:schemas-microsoft-com:asm.v3"><security><requestedPrivileges>)"
                             R"(<requestedExecutionLevel level="requireAdministrator" uiAccess="false"/>)"
                             R"(</requestedPrivileges></security></trustInfo></assembly>)";

/// A copy of this program whose manifest requires elevation.
void RunOnceElevated(const Text& tstrFolder, DWORD)
{
    wchar_t szOwn[1024] = {};
    ::GetModuleFileNameW(nullptr, szOwn, 1024);
    const Text tstrCopy = tstrFolder + L"elevated.exe";
    Require(::CopyFileW(szOwn, tstrCopy.c_str(), FALSE), L"the trial can copy itself");
    const HANDLE hUpdate = ::BeginUpdateResourceW(tstrCopy.c_str(), FALSE);
    Require(hUpdate &&
                ::UpdateResourceW(hUpdate, RT_MANIFEST, MAKEINTRESOURCEW(1), LANG_NEUTRAL, const_cast<char*>(kManifest),
                                  sizeof(kManifest) - 1) &&
                ::EndUpdateResourceW(hUpdate, FALSE),
            L"a copy can be given a manifest");
    AddRunOnce(kElevated, L"\"" + tstrCopy + L"\" --note-rights \"" + tstrFolder + L"ran.txt\"");
}

Text HasItRun(const Text& tstrFolder, DWORD)
{
    const std::string strRan = ReadFileAt(tstrFolder + L"ran.txt");
    if (strRan == "elevated" || strRan == "plain") return strRan == "plain" ? L"runs, not elevated" : L"runs, elevated";
    return strRan.starts_with("ran") ? L"runs" : L"does not run";
}

const wchar_t kEmptyConsole[] = L"run it while no user is signed in at the console (docs/windows-trial.md)";

// question, assumed, Wine 8 | Wine 10 where they differ, what depends on it
// clang-format off
constexpr Assumption kRows[] = {
    {L"a new file in the root of the system drive", L"every user may change it", L"users may not change it",
     L"a driver copied there keeps the rights of the replaced one", &RightsBelowDrive},
    {L"WTSSendMessageW to a missing session", L"refused", L"done", L"no question is asked without a console session", &MessageWithoutSession},
    {L"a message box on a console without a user", L"waits for an answer", nullptr,
     L"the question of a deployment and the update client wait until a user signs in there",
     &MessageWithoutUser, 0, nullptr, kEmptyConsole},
    {L"delayed move of a file", L"arrives", nullptr, L"everything that is deployed", &ContentOfOld, 0, &DelayReplacement},
    {L"delayed move of a read-only file", L"arrives", nullptr, L"packages may hold such files", &ContentOfOld, kNewIsReadOnly, &DelayReplacement},
    // Wine 10 does as Windows.
    {L"delayed move onto a read-only file", L"does not arrive", L"arrives",
     L"what is to be replaced is made writable when the move is registered", &ContentOfOld, kOldIsReadOnly, &DelayReplacement},
    {L"a thousand delayed moves", L"all, in order", nullptr,
     L"updates of any size; of two packages with the same file, the later one wins", &CountMoved, 0, &DelayThousand},
    {L"delayed deletion of a folder that is empty by then", L"gone", nullptr, L"folders of \"QOR_DIR\"", &IsFolderGone, eFileToo, &DelayDeletion},
    {L"delayed deletion of a folder that is not empty", L"there", nullptr, L"other programs' files are not lost", &IsFolderGone, eFolderOnly, &DelayDeletion},
    {L"delayed deletion of a link to a folder", L"gone, its target there", nullptr, L"the same", &IsFolderGone, eLink, &DelayDeletion},
    {L"a run-once command of 250 characters", L"runs", nullptr, L"the limit in the guides", &HasItRun, 250, &RunOnce},
    {L"a run-once command of 400 characters", L"does not run", L"runs", L"the same limit", &HasItRun, 400, &RunOnce},
    {L"a run-once command whose program requires elevation", L"runs, elevated", nullptr, L"the rename after the restart", &HasItRun, 0, &RunOnceElevated},
};
// clang-format on

}  // namespace

std::span<const Assumption> Assumptions()
{
    return kRows;
}

void NoteRights(const Text& tstrPath)
{
    UniqueKernelHandle token;
    TOKEN_ELEVATION elevation{};
    DWORD cb = sizeof(elevation);
    const bool bElevated = ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.Receive()) &&
                           ::GetTokenInformation(token.Get(), TokenElevation, &elevation, cb, &cb) &&
                           elevation.TokenIsElevated;
    WriteFileAt(tstrPath, bElevated ? "elevated" : "plain");
}

}  // namespace Platform
