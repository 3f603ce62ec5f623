// Files, INI files, libraries and sessions; and effects that only a restart shows.
#include "Assumptions.h"

#include "common/KzComn_Handle.h"

#include <accctrl.h>
#include <aclapi.h>
#include <wtsapi32.h>

using namespace KzCommon;

namespace Platform {

namespace {

std::wstring CopyOnto(const std::wstring& tstrFolder, DWORD dwAttributes)
{
    const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old", dwAttributes);
    return Outcome(::CopyFileW(WriteFileAt(tstrFolder + L"new", "new").c_str(), tstrOld.c_str(), FALSE));
}

UniqueFile HoldFile(const std::wstring& tstrPath, DWORD dwShare)
{
    return UniqueFile(::CreateFileW(tstrPath.c_str(), GENERIC_READ, dwShare, nullptr, OPEN_EXISTING, 0, nullptr));
}

std::wstring IniAt(const std::wstring& tstrFolder, std::string_view strBytes, DWORD dwAttributes = 0)
{
    return WriteFileAt(tstrFolder + L"a.ini", strBytes, dwAttributes);
}

std::wstring ValueOf(const std::wstring& tstrIni)
{
    wchar_t szText[64] = {};
    ::GetPrivateProfileStringW(L"B", L"key", L"default", szText, 64, tstrIni.c_str());
    return szText;
}

std::wstring ReadLetter(const std::wstring& tstrFolder, std::string_view strBytes)
{
    return ValueOf(IniAt(tstrFolder, strBytes)) == L"\u00e4" ? L"as written" : L"in another form";
}

std::wstring WriteIni(const std::wstring& tstrIni)
{
    return Outcome(::WritePrivateProfileStringW(L"B", L"key", L"other", tstrIni.c_str()));
}

/// The content of a section that may be missing or empty: the result and its code.
std::wstring SectionAndCode(const std::wstring& tstrFolder, std::string_view strBytes)
{
    const std::wstring tstrIni = IniAt(tstrFolder, strBytes);
    wchar_t szText[64] = {};
    ::SetLastError(ERROR_SUCCESS);
    const DWORD cch = ::GetPrivateProfileSectionW(L"B", szText, 64, tstrIni.c_str());
    return std::to_wstring(cch) + L" characters, last error " + std::to_wstring(::GetLastError());
}

/// The rights of every signed-in user on a file that an administrator creates in the drive's root; empty if the current
/// user may not create one.
std::wstring RightsBelowDrive(const std::wstring&)
{
    wchar_t szWindows[MAX_PATH] = {};
    ::GetSystemWindowsDirectoryW(szWindows, MAX_PATH);
    const std::wstring tstrPath = std::wstring(szWindows, 3) + L"brevant-trial.tmp";
    if (!UniqueFile(::CreateFileW(tstrPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr))) return {};
    PACL pList = nullptr;
    PSECURITY_DESCRIPTOR pFound = nullptr;
    ::GetNamedSecurityInfoW(tstrPath.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &pList,
                            nullptr, &pFound);
    ::DeleteFileW(tstrPath.c_str());
    BYTE sid[SECURITY_MAX_SID_SIZE] = {};
    DWORD cbSid = sizeof(sid);
    TRUSTEE_W users{};
    ACCESS_MASK rights = 0;
    if (pList && ::CreateWellKnownSid(WinAuthenticatedUserSid, nullptr, sid, &cbSid)) {
        ::BuildTrusteeWithSidW(&users, sid);
        ::GetEffectiveRightsFromAclW(pList, &users, &rights);
    }
    ::LocalFree(pFound);
    return (rights & FILE_WRITE_DATA) ? L"every user may change it" : L"users may not change it";
}

std::wstring MessageWithoutSession(const std::wstring&)
{
    constexpr DWORD kUnusedSession = 54321;
    wchar_t szText[] = L"Trial";
    constexpr DWORD kBytes = sizeof(szText) - sizeof(wchar_t);
    DWORD dwAnswer = 0;
    return ::WTSSendMessageW(WTS_CURRENT_SERVER_HANDLE, kUnusedSession, szText, kBytes, szText, kBytes, MB_OK, 1,
                             &dwAnswer, TRUE)
               ? L"done"
               : L"refused";
}

// -- the next restart --

/// A file "new" that will replace "old", with the attributes of each.
void DelayedReplacement(const std::wstring& tstrFolder, DWORD dwNew, DWORD dwOld)
{
    const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old", dwOld);
    Delay(WriteFileAt(tstrFolder + L"new", "new", dwNew), tstrOld.c_str(), MOVEFILE_REPLACE_EXISTING);
}

std::wstring WhatStandsInOld(const std::wstring& tstrFolder)
{
    return ReadFileAt(tstrFolder + L"old") == "new" ? L"arrives" : L"does not arrive";
}

/// A folder with a file in it; either both or only the folder is to be deleted.
void DelayedDeletion(const std::wstring& tstrFolder, bool bFileToo)
{
    ::CreateDirectoryW((tstrFolder + L"folder").c_str(), nullptr);
    const std::wstring tstrFile = WriteFileAt(tstrFolder + L"folder\\a", "a");
    if (bFileToo) Delay(tstrFile, nullptr);
    Delay(tstrFolder + L"folder", nullptr);
}

/// A link to a folder with a file in it. (Wine reports success without creating one.)
void DelayedDeletionOfLink(const std::wstring& tstrFolder)
{
    ::CreateDirectoryW((tstrFolder + L"target").c_str(), nullptr);
    WriteFileAt(tstrFolder + L"target\\a", "a");
    Require(::CreateSymbolicLinkW((tstrFolder + L"folder").c_str(), (tstrFolder + L"target").c_str(),
                                  SYMBOLIC_LINK_FLAG_DIRECTORY),
            L"links can be created (run it as an administrator)");
    Delay(tstrFolder + L"folder", nullptr);
}

std::wstring WhetherFolderIsGone(const std::wstring& tstrFolder)
{
    return ::GetFileAttributesW((tstrFolder + L"folder").c_str()) == INVALID_FILE_ATTRIBUTES ? L"gone" : L"there";
}

void RunOnceOf(const std::wstring& tstrFolder, std::size_t cchCommand)
{
    std::wstring tstrCommand = L"cmd.exe /c echo ran>\"" + tstrFolder + L"ran.txt\"";
    tstrCommand.insert(11, std::wstring(cchCommand > tstrCommand.size() ? cchCommand - tstrCommand.size() : 0, L' '));
    AddRunOnce(std::to_wstring(cchCommand), tstrCommand);
}

std::wstring WhetherItRan(const std::wstring& tstrFolder)
{
    return ReadFileAt(tstrFolder + L"ran.txt").starts_with("ran") ? L"runs" : L"does not run";
}

// question, assumed, Wine 8 | Wine 10 where they differ, what depends on it; clang-format would give each trial lines
// of its own
// clang-format off
constexpr Assumption kRows[] = {
    {L"CopyFileW onto a hidden file", L"refused (5)", L"done", L"drivers, language files and shortcut backup",
     [](const std::wstring& tstrFolder) { return CopyOnto(tstrFolder, FILE_ATTRIBUTE_HIDDEN); }},
    {L"CopyFileW onto a read-only file", L"refused (5)", L"done", L"the same copies",
     [](const std::wstring& tstrFolder) { return CopyOnto(tstrFolder, FILE_ATTRIBUTE_READONLY); }},
    {L"MoveFileExW over a file open for reading", L"refused (5)", nullptr,
     L"a replaced file is tried again, then copied onto",
     [](const std::wstring& tstrFolder) {
         const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old");
         const std::wstring tstrNew = WriteFileAt(tstrFolder + L"new", "new");
         const UniqueFile reader = HoldFile(tstrOld, FILE_SHARE_READ);
         return Outcome(::MoveFileExW(tstrNew.c_str(), tstrOld.c_str(), MOVEFILE_REPLACE_EXISTING));
     }},
    {L"a name with trailing spaces and dots", L"the same as without them", nullptr,
     L"which download paths lead elsewhere",
     [](const std::wstring& tstrFolder) -> std::wstring {
         WriteFileAt(tstrFolder + L"name. .", "a");
         return ReadFileAt(tstrFolder + L"name") == "a" ? L"the same as without them" : L"another name";
     }},
    {L"a new file in the root of the system drive", L"every user may change it", L"users may not change it",
     L"a driver copied there keeps the rights of the replaced one", &RightsBelowDrive},
    {L"GetPrivateProfileSectionW, section missing", L"0 characters, last error 2", L"0 characters, last error 0",
     L"the failure line of a missing section has a code",
     [](const std::wstring& tstrFolder) { return SectionAndCode(tstrFolder, "[A]\r\nkey=value\r\n"); }},
    {L"GetPrivateProfileSectionW, section empty", L"0 characters, last error 0", nullptr,
     L"only the code distinguishes an empty section from a missing one",
     [](const std::wstring& tstrFolder) { return SectionAndCode(tstrFolder, "[A]\r\nkey=value\r\n[B]\r\n"); }},
    {L"an INI file in UTF-8 with BOM", L"in another form", L"as written", L"the guides ask for UTF-16",
     [](const std::wstring& tstrFolder) {
         return ReadLetter(tstrFolder, "\xEF\xBB\xBF[A]\r\nx=y\r\n[B]\r\nkey=\xC3\xA4\r\n");
     }},
    {L"an INI file in UTF-16 with BOM", L"as written", nullptr, L"the same",
     [](const std::wstring& tstrFolder) {
         const wchar_t szText[] = L"\xFEFF[B]\r\nkey=\u00e4\r\n";
         return ReadLetter(tstrFolder, {reinterpret_cast<const char*>(szText), sizeof(szText) - sizeof(wchar_t)});
     }},
    {L"WritePrivateProfileStringW, file read-only", L"refused (5)", L"done",
     L"update information then causes a failure line",
     [](const std::wstring& tstrFolder) { return WriteIni(IniAt(tstrFolder, "[B]\r\n", FILE_ATTRIBUTE_READONLY)); }},
    {L"WritePrivateProfileStringW, file open for reading", L"refused (32)", nullptr, L"the same",
     [](const std::wstring& tstrFolder) {
         const std::wstring tstrIni = IniAt(tstrFolder, "[B]\r\nkey=value\r\n");
         const UniqueFile holder = HoldFile(tstrIni, FILE_SHARE_READ | FILE_SHARE_DELETE);
         return WriteIni(tstrIni);
     }},
    {L"WTSSendMessageW to a missing session", L"refused", L"done",
     L"no question is asked without a console session", &MessageWithoutSession},
    {L"delayed move of a file", L"arrives", nullptr, L"everything that is deployed", &WhatStandsInOld,
     [](const std::wstring& tstrFolder) { DelayedReplacement(tstrFolder, 0, 0); }},
    {L"delayed move of a read-only file", L"arrives", nullptr, L"packages may hold such files", &WhatStandsInOld,
     [](const std::wstring& tstrFolder) { DelayedReplacement(tstrFolder, FILE_ATTRIBUTE_READONLY, 0); }},
    // Wine 10 does as Windows.
    {L"delayed move onto a read-only file", L"does not arrive", L"arrives",
     L"what is to be replaced is made writable when the move is registered", &WhatStandsInOld,
     [](const std::wstring& tstrFolder) { DelayedReplacement(tstrFolder, 0, FILE_ATTRIBUTE_READONLY); }},
    {L"delayed deletion of a folder that is empty by then", L"gone", nullptr, L"folders of \"QOR_DIR\"",
     &WhetherFolderIsGone, [](const std::wstring& tstrFolder) { DelayedDeletion(tstrFolder, true); }},
    {L"delayed deletion of a folder that is not empty", L"there", nullptr, L"other programs' files are not lost",
     &WhetherFolderIsGone, [](const std::wstring& tstrFolder) { DelayedDeletion(tstrFolder, false); }},
    {L"delayed deletion of a link to a folder", L"gone, its target there", nullptr, L"the same",
     [](const std::wstring& tstrFolder) -> std::wstring {
         return WhetherFolderIsGone(tstrFolder) + (ReadFileAt(tstrFolder + L"target\\a") == "a" ? L", its target there"
                                                                                              : L", its target, too");
     },
     &DelayedDeletionOfLink},
    {L"a run-once command of 250 characters", L"runs", nullptr, L"the limit in the guides", &WhetherItRan,
     [](const std::wstring& tstrFolder) { RunOnceOf(tstrFolder, 250); }},
    {L"a run-once command of 400 characters", L"does not run", L"runs", L"the same limit", &WhetherItRan,
     [](const std::wstring& tstrFolder) { RunOnceOf(tstrFolder, 400); }},
};
// clang-format on

}  // namespace

std::span<const Assumption> Assumptions()
{
    return kRows;
}

void Delay(const std::wstring& tstrSource, const wchar_t* szDestination, DWORD dwFlags)
{
    Require(::MoveFileExW(tstrSource.c_str(), szDestination, dwFlags | MOVEFILE_DELAY_UNTIL_REBOOT),
            L"moves can be delayed (run it as an administrator)");
}

void AddRunOnce(const std::wstring& tstrName, const std::wstring& tstrCommand)
{
    Require(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce",
                              (L"brevant-trial-" + tstrName).c_str(), REG_SZ, tstrCommand.c_str(),
                              static_cast<DWORD>((tstrCommand.size() + 1) * sizeof(wchar_t))) == ERROR_SUCCESS,
            L"the RunOnce key can be written (run it as an administrator)");
}

}  // namespace Platform
