// Rights, sessions and the registry, and long lists of delayed moves.
#include "Assumptions.h"

#include "common/KzComn_Handle.h"

#include <wtsapi32.h>

using namespace KzCommon;

namespace Platform {

namespace {

// -- a program that requires elevation --

constexpr char kManifest[] = R"(<assembly xmlns="urn:schemas-microsoft-com:asm.v1" manifestVersion="1.0">)"
                             R"(<trustInfo xmlns="urn:schemas-microsoft-com:asm.v3"><security><requestedPrivileges>)"
                             R"(<requestedExecutionLevel level="requireAdministrator" uiAccess="false"/>)"
                             R"(</requestedPrivileges></security></trustInfo></assembly>)";

/// Creates a copy of this program whose manifest requires elevation; returns its path.
std::wstring MakeElevatedCopy(const std::wstring& tstrFolder)
{
    wchar_t szOwn[1024] = {};
    ::GetModuleFileNameW(nullptr, szOwn, 1024);
    const std::wstring tstrCopy = tstrFolder + L"elevated.exe";
    Require(::CopyFileW(szOwn, tstrCopy.c_str(), FALSE), L"the trial can copy itself");
    const HANDLE hUpdate = ::BeginUpdateResourceW(tstrCopy.c_str(), FALSE);
    Require(hUpdate &&
                ::UpdateResourceW(hUpdate, RT_MANIFEST, MAKEINTRESOURCEW(1), LANG_NEUTRAL, const_cast<char*>(kManifest),
                                  sizeof(kManifest) - 1) &&
                ::EndUpdateResourceW(hUpdate, FALSE),
            L"a copy can be given a manifest");
    return tstrCopy;
}

void RunOnceElevated(const std::wstring& tstrFolder)
{
    const std::wstring tstrCommand = L"\"" + MakeElevatedCopy(tstrFolder) + L"\" --note-rights ";
    AddRunOnce(L"elevated", tstrCommand + L"\"" + tstrFolder + L"rights.txt\"");
}

std::wstring RightsOfCommand(const std::wstring& tstrFolder)
{
    const std::string strRights = ReadFileAt(tstrFolder + L"rights.txt");
    return strRights == "elevated" ? L"runs, elevated" : strRights == "plain" ? L"runs, not elevated" : L"does not run";
}

bool IsElevated()
{
    UniqueKernelHandle token;
    TOKEN_ELEVATION elevation{};
    DWORD cb = sizeof(elevation);
    return ::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.Receive()) &&
           ::GetTokenInformation(token.Get(), TokenElevation, &elevation, cb, &cb) && elevation.TokenIsElevated;
}

// -- many delayed moves --

constexpr unsigned kMoves = 1000;
constexpr unsigned kTargets = 10;

std::wstring SourceOf(const std::wstring& tstrFolder, unsigned uMove)
{
    return tstrFolder + L"source" + std::to_wstring(uMove);
}

std::wstring TargetOf(const std::wstring& tstrFolder, unsigned uMove)
{
    return tstrFolder + L"target" + std::to_wstring(uMove % kTargets);
}

/// Replaces each target a hundred times: it contains the last source only if the order is kept.
void ThousandMoves(const std::wstring& tstrFolder)
{
    for (unsigned uMove = 0; uMove < kMoves; ++uMove) {
        const std::wstring tstrSource = WriteFileAt(SourceOf(tstrFolder, uMove), std::to_string(uMove));
        Delay(tstrSource, TargetOf(tstrFolder, uMove).c_str(), MOVEFILE_REPLACE_EXISTING);
    }
}

std::wstring WhatHasMoved(const std::wstring& tstrFolder)
{
    unsigned cMoved = 0;
    for (unsigned uMove = 0; uMove < kMoves; ++uMove) {
        if (::GetFileAttributesW(SourceOf(tstrFolder, uMove).c_str()) == INVALID_FILE_ATTRIBUTES) ++cMoved;
    }
    unsigned cLast = 0;
    for (unsigned uMove = kMoves - kTargets; uMove < kMoves; ++uMove) {
        if (ReadFileAt(TargetOf(tstrFolder, uMove)) == std::to_string(uMove)) ++cLast;
    }
    if (cMoved == kMoves && cLast == kTargets) return L"all, in order";
    return std::to_wstring(cMoved) + L" moves, " + std::to_wstring(cLast) + L" targets with the last one";
}

// -- the console --

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
std::wstring MessageWithoutUser(const std::wstring&)
{
    const DWORD dwSession = ::WTSGetActiveConsoleSessionId();
    if (dwSession == 0xFFFFFFFF || !IsWithoutUser(dwSession)) return {};
    wchar_t szText[] = L"Trial";
    constexpr DWORD kBytes = sizeof(szText) - sizeof(wchar_t);
    constexpr DWORD kSeconds = 3;
    DWORD dwAnswer = 0;
    if (!::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, dwSession, szText, kBytes, szText, kBytes, MB_OK, kSeconds,
                           &dwAnswer, TRUE)) {
        return Outcome(FALSE);
    }
    return dwAnswer == IDTIMEOUT ? L"waits for an answer" : L"answered by itself (" + std::to_wstring(dwAnswer) + L")";
}

// -- the registry --

using OpenKey = decltype(&::RegOpenKeyExW);

bool Finds(OpenKey pfnOpen, const std::wstring& tstrKey)
{
    UniqueRegistryKey key;
    return pfnOpen(HKEY_LOCAL_MACHINE, tstrKey.c_str(), 0, KEY_READ, key.Receive()) == ERROR_SUCCESS;
}

/// Which functions find a key that exists only in a redirected HKEY_LOCAL_MACHINE: those of the core, which the product
/// imports, or those of advapi32.
std::wstring RedirectedRegistry(const std::wstring&)
{
    const std::wstring tstrRoot = L"Software\\BrevantTrial" + std::to_wstring(::GetCurrentProcessId());
    UniqueRegistryKey root, probe;
    Require(::RegCreateKeyW(HKEY_CURRENT_USER, tstrRoot.c_str(), root.Receive()) == ERROR_SUCCESS &&
                ::RegCreateKeyW(root.Get(), L"brevant-trial", probe.Receive()) == ERROR_SUCCESS &&
                ::RegOverridePredefKey(HKEY_LOCAL_MACHINE, root.Get()) == ERROR_SUCCESS,
            L"the registry can be redirected");
    const auto pfnOld = reinterpret_cast<OpenKey>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"advapi32.dll"), "RegOpenKeyExW")));
    const bool bCore = Finds(&::RegOpenKeyExW, L"brevant-trial");
    const bool bOld = pfnOld && Finds(pfnOld, L"brevant-trial");
    ::RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    ::RegDeleteTreeW(HKEY_CURRENT_USER, tstrRoot.c_str());
    return bCore && bOld ? L"both" : bCore ? L"the core's only" : bOld ? L"advapi32's only" : L"neither";
}

// question, assumed, Wine 8 where it differs, the dependent feature
// clang-format off
constexpr Assumption kSystemRows[] = {
    {L"a run-once command whose program requires elevation", L"runs, elevated", nullptr,
     L"the rename after the restart", &RightsOfCommand, &RunOnceElevated},
    {L"a thousand delayed moves", L"all, in order", nullptr,
     L"updates of any size; of two packages with the same file, the later one wins", &WhatHasMoved, &ThousandMoves},
    {L"a message box on a console without a user", L"waits for an answer", nullptr,
     L"the question of a deployment and the update client wait until a user signs in there",
     &MessageWithoutUser, nullptr, L"run it while no user is signed in at the console (docs/windows-trial.md)"},
    {L"RegOverridePredefKey, functions that are redirected", L"both", nullptr,
     L"the unit tests leave the machine's registry alone", &RedirectedRegistry},
};
// clang-format on

}  // namespace

std::span<const Assumption> SystemAssumptions()
{
    return kSystemRows;
}

void NoteRights(const std::wstring& tstrPath)
{
    WriteFileAt(tstrPath, IsElevated() ? "elevated" : "plain");
}

}  // namespace Platform
