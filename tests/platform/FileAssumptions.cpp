// Files, folders and INI files.
#include "Assumptions.h"

#include "common/KzComn_Handle.h"

#include <aclapi.h>
#include <sddl.h>

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

UniqueFile HoldFolder(const std::wstring& tstrFolder)
{
    UniqueFile folder(::CreateFileW(tstrFolder.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    Require(folder.IsValid(), L"a folder can be opened");
    return folder;
}

/// Reads a file's access control list; null when it cannot be read.
PACL ListOf(const std::wstring& tstrPath, BYTE (&descriptor)[4096])
{
    DWORD cb = 0;
    BOOL bPresent = FALSE;
    BOOL bDefaulted = FALSE;
    PACL pList = nullptr;
    if (::GetFileSecurityW(tstrPath.c_str(), DACL_SECURITY_INFORMATION, descriptor, sizeof(descriptor), &cb)) {
        ::GetSecurityDescriptorDacl(descriptor, &bPresent, &pList, &bDefaulted);
    }
    return pList;
}

/// A file made with a list of its own keeps it when it is renamed over another one.
std::wstring ReplaceFileKeepsRights(const std::wstring& tstrFolder)
{
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), nullptr, FALSE};
    Require(::ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;;FA;;;BA)(A;;FA;;;SY)", SDDL_REVISION_1,
                                                                   &attributes.lpSecurityDescriptor, nullptr),
            L"rights can be described");
    const std::wstring tstrNew = tstrFolder + L"new";
    UniqueFile file(::CreateFileW(tstrNew.c_str(), GENERIC_WRITE, 0, &attributes, CREATE_NEW, 0, nullptr));
    ::LocalFree(attributes.lpSecurityDescriptor);
    Require(file.IsValid(), L"a file can be made with rights of its own");
    file.Reset();
    const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old");
    Require(::MoveFileExW(tstrNew.c_str(), tstrOld.c_str(), MOVEFILE_REPLACE_EXISTING), L"a file can be replaced");
    BYTE descriptor[4096] = {};
    const ACL* const pList = ListOf(tstrOld, descriptor);
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD dwRevision = 0;
    ::GetSecurityDescriptorControl(descriptor, &control, &dwRevision);
    return std::to_wstring(pList ? pList->AceCount : 0) + L" entries" +
           ((control & SE_DACL_PROTECTED) ? L", protected" : L"");
}

/// Whether the group of all signed-in users may write to what an administrator makes in the drive's root.
std::wstring RightsBelowDrive(const std::wstring&)
{
    wchar_t szWindows[MAX_PATH] = {};
    ::GetSystemWindowsDirectoryW(szWindows, MAX_PATH);
    const std::wstring tstrPath = std::wstring(szWindows, 3) + L"brevant-trial.tmp";
    if (!UniqueFile(::CreateFileW(tstrPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr))) {
        return L"not to be tried: " + Outcome(FALSE);
    }
    BYTE descriptor[4096] = {};
    const PACL pList = ListOf(tstrPath, descriptor);
    ::DeleteFileW(tstrPath.c_str());
    BYTE sid[SECURITY_MAX_SID_SIZE] = {};
    DWORD cbSid = sizeof(sid);
    TRUSTEE_W users{};
    ACCESS_MASK rights = 0;
    if (pList && ::CreateWellKnownSid(WinAuthenticatedUserSid, nullptr, sid, &cbSid)) {
        ::BuildTrusteeWithSidW(&users, sid);
        ::GetEffectiveRightsFromAclW(pList, &users, &rights);
    }
    return (rights & FILE_WRITE_DATA) ? L"every user may change it" : L"users may not change it";
}

// -- INI files --

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

std::wstring ReadSection(const std::wstring& tstrIni)
{
    wchar_t szText[64] = {};
    ::SetLastError(0);
    const DWORD cch = ::GetPrivateProfileSectionW(L"B", szText, 64, tstrIni.c_str());
    return std::to_wstring(cch) + L" characters, last error " + std::to_wstring(::GetLastError());
}

std::wstring ReadLetter(const std::wstring& tstrFolder, std::string_view strBytes)
{
    return ValueOf(IniAt(tstrFolder, strBytes)) == L"\u00e4" ? L"as written" : L"in another form";
}

std::wstring WriteIni(const std::wstring& tstrIni)
{
    return Outcome(::WritePrivateProfileStringW(L"B", L"key", L"other", tstrIni.c_str()));
}

// question, assumed, Wine 8 where it differs, what depends on it; clang-format would give each trial lines of its own
// clang-format off
constexpr Assumption kRows[] = {
    {L"CopyFileW onto a hidden file", L"refused (5)", L"done", L"drivers, language files and shortcut backup",
     [](const std::wstring& tstrFolder) { return CopyOnto(tstrFolder, FILE_ATTRIBUTE_HIDDEN); }},
    {L"CopyFileW onto a read-only file", L"refused (5)", L"done", L"the same copies",
     [](const std::wstring& tstrFolder) { return CopyOnto(tstrFolder, FILE_ATTRIBUTE_READONLY); }},
    {L"DeleteFileW of a read-only file", L"refused (5)", nullptr, L"\"delete_now\" takes the attribute away first",
     [](const std::wstring& tstrFolder) {
         return Outcome(::DeleteFileW(WriteFileAt(tstrFolder + L"a", "a", FILE_ATTRIBUTE_READONLY).c_str()));
     }},
    {L"MoveFileExW over a file that somebody reads", L"refused (5)", nullptr,
     L"a replaced file is tried again, then copied onto",
     [](const std::wstring& tstrFolder) {
         const std::wstring tstrNew = WriteFileAt(tstrFolder + L"new", "new");
         const std::wstring tstrOld = WriteFileAt(tstrFolder + L"old", "old");
         const UniqueFile reader = HoldFile(tstrOld, FILE_SHARE_READ);
         return Outcome(::MoveFileExW(tstrNew.c_str(), tstrOld.c_str(), MOVEFILE_REPLACE_EXISTING));
     }},
    {L"rights of a file that took another's place", L"2 entries, protected", L"2 entries",
     L"an overwritten driver stays closed to users", &ReplaceFileKeepsRights},
    {L"renaming a folder that is held open", L"refused (32)", L"done",
     L"a folder cannot be exchanged while its files are deleted",
     [](const std::wstring& tstrFolder) {
         const std::wstring tstrHeld = tstrFolder + L"held";
         ::CreateDirectoryW(tstrHeld.c_str(), nullptr);
         const UniqueFile folder = HoldFolder(tstrHeld);
         return Outcome(::MoveFileW(tstrHeld.c_str(), (tstrFolder + L"moved").c_str()));
     }},
    {L"deleting a file below a folder that is held open", L"done", nullptr, L"the same deletion",
     [](const std::wstring& tstrFolder) {
         const UniqueFile folder = HoldFolder(tstrFolder);
         return Outcome(::DeleteFileW(WriteFileAt(tstrFolder + L"a", "a").c_str()));
     }},
    {L"a name with trailing blanks and dots", L"the same as without them", nullptr,
     L"what counts as a download path that leads elsewhere",
     [](const std::wstring& tstrFolder) -> std::wstring {
         WriteFileAt(tstrFolder + L"name. .", "a");
         return ReadFileAt(tstrFolder + L"name") == "a" ? L"the same as without them" : L"another name";
     }},
    {L"two dots and a blank as a part of a path", L"a name of its own", nullptr, L"the same check",
     [](const std::wstring& tstrFolder) -> std::wstring {
         ::CreateDirectoryW((tstrFolder + L"a").c_str(), nullptr);
         ::CreateDirectoryW((tstrFolder + L"a\\b").c_str(), nullptr);
         wchar_t szFull[MAX_PATH] = {};
         ::GetFullPathNameW((tstrFolder + L"a\\b\\.. \\c").c_str(), MAX_PATH, szFull, nullptr);
         return tstrFolder + L"a\\c" == szFull ? L"the folder above" : L"a name of its own";
     }},
    {L"\"*.*\" and a name without a dot", L"found", nullptr, L"packages may hold such files",
     [](const std::wstring& tstrFolder) -> std::wstring {
         WIN32_FIND_DATAW data{};
         const std::wstring tstrFile = WriteFileAt(tstrFolder + L"readme", "a");
         return UniqueFind(::FindFirstFileW((tstrFile + L"*.*").c_str(), &data)) ? L"found" : L"not found";
     }},
    {L"GetVolumePathNameW of a file", L"that of its folder", nullptr, L"it is asked once for each folder",
     [](const std::wstring& tstrFolder) -> std::wstring {
         wchar_t szFile[MAX_PATH] = {};
         wchar_t szFolder[MAX_PATH] = {};
         ::GetVolumePathNameW(WriteFileAt(tstrFolder + L"a", "a").c_str(), szFile, MAX_PATH);
         ::GetVolumePathNameW(tstrFolder.c_str(), szFolder, MAX_PATH);
         return std::wstring(szFile) == szFolder && *szFile ? L"that of its folder" : L"another one";
     }},
    {L"a new file in the root of the system drive", L"every user may change it", L"users may not change it",
     L"a driver that is copied there keeps the rights of the one it replaces", &RightsBelowDrive},
    {L"GetPrivateProfileSectionW, section missing", L"0 characters, last error 2", L"0 characters, last error 0",
     L"the failure line of a missing section has a code",
     [](const std::wstring& tstrFolder) { return ReadSection(IniAt(tstrFolder, "[A]\r\nkey=value\r\n")); }},
    {L"GetPrivateProfileSectionW, section empty", L"0 characters, last error 0", nullptr,
     L"an empty section is told from a missing one by the code alone",
     [](const std::wstring& tstrFolder) { return ReadSection(IniAt(tstrFolder, "[A]\r\nkey=value\r\n[B]\r\n")); }},
    {L"a section that stands twice", L"the first", nullptr, L"the checker's warning",
     [](const std::wstring& tstrFolder) -> std::wstring {
         const char szTwice[] = "[B]\r\nkey=1\r\n[A]\r\nother=2\r\n[B]\r\nkey=3\r\nmore=4\r\n";
         return ReadSection(IniAt(tstrFolder, szTwice)).starts_with(L"6 ") ? L"the first" : L"not the first alone";
     }},
    {L"reading an INI file that nobody else may open", L"default", nullptr,
     L"held update information is looked for before it is read",
     [](const std::wstring& tstrFolder) {
         const UniqueFile holder = HoldFile(IniAt(tstrFolder, "[B]\r\nkey=value\r\n"), 0);
         return ValueOf(tstrFolder + L"a.ini");
     }},
    {L"an INI file in UTF-8 without mark", L"in another form", nullptr, L"the guides ask for UTF-16",
     [](const std::wstring& tstrFolder) { return ReadLetter(tstrFolder, "[A]\r\nx=y\r\n[B]\r\nkey=\xC3\xA4\r\n"); }},
    {L"an INI file in UTF-8 with its mark", L"in another form", L"as written", L"the guides ask for UTF-16",
     [](const std::wstring& tstrFolder) {
         return ReadLetter(tstrFolder, "\xEF\xBB\xBF[A]\r\nx=y\r\n[B]\r\nkey=\xC3\xA4\r\n");
     }},
    {L"an INI file in UTF-16 with its mark", L"as written", nullptr, L"the same",
     [](const std::wstring& tstrFolder) {
         const wchar_t szText[] = L"\xFEFF[B]\r\nkey=\u00e4\r\n";
         return ReadLetter(tstrFolder, {reinterpret_cast<const char*>(szText), sizeof(szText) - sizeof(wchar_t)});
     }},
    {L"WritePrivateProfileStringW, file read-only", L"refused (5)", L"done",
     L"update information is then a failure line",
     [](const std::wstring& tstrFolder) { return WriteIni(IniAt(tstrFolder, "[B]\r\n", FILE_ATTRIBUTE_READONLY)); }},
    {L"WritePrivateProfileStringW, file held by a reader", L"refused (32)", nullptr, L"the same",
     [](const std::wstring& tstrFolder) {
         const std::wstring tstrIni = IniAt(tstrFolder, "[B]\r\nkey=value\r\n");
         const UniqueFile holder = HoldFile(tstrIni, FILE_SHARE_READ | FILE_SHARE_DELETE);
         return WriteIni(tstrIni);
     }},
};
// clang-format on

}  // namespace

std::span<const Assumption> FileAssumptions()
{
    return kRows;
}

}  // namespace Platform
