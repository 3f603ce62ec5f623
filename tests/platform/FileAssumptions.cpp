// Files, folders and INI files.
#include "Assumptions.h"

#include "common/KzComn_Handle.h"

#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include <iterator>

using namespace KzCommon;

namespace Platform {

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

std::wstring CopyOnto(const std::wstring& tstrFolder, DWORD dwAttributes)
{
    WriteFileAt(tstrFolder + L"old", "old");
    WriteFileAt(tstrFolder + L"new", "new");
    Require(::SetFileAttributesW((tstrFolder + L"old").c_str(), dwAttributes) != FALSE, L"attributes can be set");
    return Outcome(::CopyFileW((tstrFolder + L"new").c_str(), (tstrFolder + L"old").c_str(), FALSE) != FALSE);
}

std::wstring CopyOntoHidden(const std::wstring& tstrFolder)
{
    return CopyOnto(tstrFolder, FILE_ATTRIBUTE_HIDDEN);
}

std::wstring CopyOntoReadOnly(const std::wstring& tstrFolder)
{
    return CopyOnto(tstrFolder, FILE_ATTRIBUTE_READONLY);
}

std::wstring DeleteReadOnly(const std::wstring& tstrFolder)
{
    WriteFileAt(tstrFolder + L"a", "a");
    ::SetFileAttributesW((tstrFolder + L"a").c_str(), FILE_ATTRIBUTE_READONLY);
    return Outcome(::DeleteFileW((tstrFolder + L"a").c_str()) != FALSE);
}

std::wstring ReplaceOpenFile(const std::wstring& tstrFolder)
{
    WriteFileAt(tstrFolder + L"old", "old");
    WriteFileAt(tstrFolder + L"new", "new");
    const UniqueFile reader(::CreateFileW((tstrFolder + L"old").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
    Require(reader.IsValid(), L"a file can be opened");
    return Outcome(::MoveFileExW((tstrFolder + L"new").c_str(), (tstrFolder + L"old").c_str(),
                                 MOVEFILE_REPLACE_EXISTING) != FALSE);
}

std::wstring ReplaceFileKeepsRights(const std::wstring& tstrFolder)
{
    // A file made with a list of its own keeps it when it is renamed over another one.
    PSECURITY_DESCRIPTOR pDescriptor = nullptr;
    Require(::ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;;FA;;;BA)(A;;FA;;;SY)", SDDL_REVISION_1,
                                                                   &pDescriptor, nullptr) != FALSE,
            L"rights can be described");
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), pDescriptor, FALSE};
    UniqueFile file(
        ::CreateFileW((tstrFolder + L"new").c_str(), GENERIC_WRITE, 0, &attributes, CREATE_NEW, 0, nullptr));
    ::LocalFree(pDescriptor);
    Require(file.IsValid(), L"a file can be made with rights of its own");
    file.Reset();
    WriteFileAt(tstrFolder + L"old", "old");
    Require(
        ::MoveFileExW((tstrFolder + L"new").c_str(), (tstrFolder + L"old").c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE,
        L"a file can be replaced");
    PACL pList = nullptr;
    PSECURITY_DESCRIPTOR pFound = nullptr;
    if (::GetNamedSecurityInfoW((tstrFolder + L"old").c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                nullptr, &pList, nullptr, &pFound) != ERROR_SUCCESS) {
        return L"rights cannot be read";
    }
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD dwRevision = 0;
    ::GetSecurityDescriptorControl(pFound, &control, &dwRevision);
    const DWORD cEntries = pList ? pList->AceCount : 0;
    ::LocalFree(pFound);
    return std::to_wstring(cEntries) + L" entries" + ((control & SE_DACL_PROTECTED) ? L", protected" : L"");
}

std::wstring MoveHeldFolder(const std::wstring& tstrFolder)
{
    const std::wstring tstrHeld = tstrFolder + L"held";
    ::CreateDirectoryW(tstrHeld.c_str(), nullptr);
    const UniqueFile folder(::CreateFileW(tstrHeld.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                          nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    Require(folder.IsValid(), L"a folder can be opened");
    return Outcome(::MoveFileW(tstrHeld.c_str(), (tstrFolder + L"moved").c_str()) != FALSE);
}

std::wstring DeleteBelowHeldFolder(const std::wstring& tstrFolder)
{
    const UniqueFile folder(::CreateFileW(tstrFolder.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                          nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    WriteFileAt(tstrFolder + L"a", "a");
    return Outcome(::DeleteFileW((tstrFolder + L"a").c_str()) != FALSE);
}

std::wstring DropTrailingBlanks(const std::wstring& tstrFolder)
{
    WriteFileAt(tstrFolder + L"name. .", "a");
    return ::GetFileAttributesW((tstrFolder + L"name").c_str()) != INVALID_FILE_ATTRIBUTES ? L"the same as without them"
                                                                                           : L"another name";
}

std::wstring DotsAfterName(const std::wstring& tstrFolder)
{
    ::CreateDirectoryW((tstrFolder + L"a").c_str(), nullptr);
    ::CreateDirectoryW((tstrFolder + L"a\\b").c_str(), nullptr);
    wchar_t szFull[MAX_PATH] = {};
    ::GetFullPathNameW((tstrFolder + L"a\\b\\.. \\c").c_str(), MAX_PATH, szFull, nullptr);
    return std::wstring(szFull) == tstrFolder + L"a\\c" ? L"the folder above" : L"a name of its own";
}

std::wstring FindWithoutDot(const std::wstring& tstrFolder)
{
    WriteFileAt(tstrFolder + L"readme", "a");
    WIN32_FIND_DATAW data{};
    const UniqueFind find(::FindFirstFileW((tstrFolder + L"readme*.*").c_str(), &data));
    return find ? L"found" : L"not found";
}

std::wstring VolumeOfFile(const std::wstring& tstrFolder)
{
    WriteFileAt(tstrFolder + L"a", "a");
    wchar_t szFile[MAX_PATH] = {};
    wchar_t szFolder[MAX_PATH] = {};
    ::GetVolumePathNameW((tstrFolder + L"a").c_str(), szFile, MAX_PATH);
    ::GetVolumePathNameW(tstrFolder.c_str(), szFolder, MAX_PATH);
    return std::wstring(szFile) == szFolder && *szFile ? L"that of its folder" : L"another one";
}

std::wstring RightsBelowDrive(const std::wstring&)
{
    // Whether the group of all signed-in users may write to what an administrator makes in the drive's root.
    wchar_t szWindows[MAX_PATH] = {};
    ::GetSystemWindowsDirectoryW(szWindows, MAX_PATH);
    const std::wstring tstrPath = std::wstring(szWindows, 3) + L"brevant-trial.tmp";
    if (!UniqueFile(::CreateFileW(tstrPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr))) {
        return L"not to be tried: " + Outcome(false);
    }
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

// -- INI files --

std::wstring SectionOf(const std::wstring& tstrPath, const wchar_t* szSection)
{
    wchar_t szText[64] = {};
    ::SetLastError(0);
    const DWORD cch = ::GetPrivateProfileSectionW(szSection, szText, 64, tstrPath.c_str());
    return std::to_wstring(cch) + L" characters, last error " + std::to_wstring(::GetLastError());
}

std::wstring MissingSection(const std::wstring& tstrFolder)
{
    WriteFileAt(tstrFolder + L"a.ini", "[A]\r\nkey=value\r\n");
    return SectionOf(tstrFolder + L"a.ini", L"B");
}

std::wstring EmptySection(const std::wstring& tstrFolder)
{
    WriteFileAt(tstrFolder + L"a.ini", "[A]\r\nkey=value\r\n[B]\r\n");
    return SectionOf(tstrFolder + L"a.ini", L"B");
}

std::wstring SectionTwice(const std::wstring& tstrFolder)
{
    WriteFileAt(tstrFolder + L"a.ini", "[A]\r\nkey=1\r\n[B]\r\nother=2\r\n[A]\r\nkey=3\r\nmore=4\r\n");
    wchar_t szText[64] = {};
    const DWORD cch = ::GetPrivateProfileSectionW(L"A", szText, 64, (tstrFolder + L"a.ini").c_str());
    return cch == 6 ? L"the first" : cch > 6 ? L"both" : L"neither";
}

std::wstring HeldIniFile(const std::wstring& tstrFolder)
{
    WriteFileAt(tstrFolder + L"a.ini", "[A]\r\nkey=value\r\n");
    const UniqueFile holder(
        ::CreateFileW((tstrFolder + L"a.ini").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    wchar_t szText[64] = {};
    ::GetPrivateProfileStringW(L"A", L"key", L"default", szText, 64, (tstrFolder + L"a.ini").c_str());
    return szText;
}

std::wstring ReadLetter(const std::wstring& tstrFolder, std::string_view strBytes)
{
    WriteFileAt(tstrFolder + L"a.ini", strBytes);
    wchar_t szText[64] = {};
    ::GetPrivateProfileStringW(L"B", L"key", L"(default)", szText, 64, (tstrFolder + L"a.ini").c_str());
    return std::wstring(szText) == L"\u00e4" ? L"as written" : L"in another form";
}

std::wstring IniUtf8(const std::wstring& tstrFolder)
{
    return ReadLetter(tstrFolder, "[A]\r\nx=y\r\n[B]\r\nkey=\xC3\xA4\r\n");
}

std::wstring IniUtf8WithMark(const std::wstring& tstrFolder)
{
    return ReadLetter(tstrFolder, "\xEF\xBB\xBF[A]\r\nx=y\r\n[B]\r\nkey=\xC3\xA4\r\n");
}

std::wstring IniUtf16(const std::wstring& tstrFolder)
{
    const wchar_t szText[] = L"\xFEFF[B]\r\nkey=\u00e4\r\n";
    return ReadLetter(tstrFolder, {reinterpret_cast<const char*>(szText), sizeof(szText) - sizeof(wchar_t)});
}

std::wstring WriteReadOnlyIni(const std::wstring& tstrFolder)
{
    const std::wstring tstrPath = tstrFolder + L"a.ini";
    WriteFileAt(tstrPath, "[A]\r\nkey=value\r\n");
    ::SetFileAttributesW(tstrPath.c_str(), FILE_ATTRIBUTE_READONLY);
    return Outcome(::WritePrivateProfileStringW(L"A", L"key", L"other", tstrPath.c_str()) != FALSE);
}

std::wstring WriteHeldIni(const std::wstring& tstrFolder)
{
    const std::wstring tstrPath = tstrFolder + L"a.ini";
    WriteFileAt(tstrPath, "[A]\r\nkey=value\r\n");
    const UniqueFile holder(::CreateFileW(tstrPath.c_str(), GENERIC_READ, kShareAll & ~DWORD{FILE_SHARE_WRITE}, nullptr,
                                          OPEN_EXISTING, 0, nullptr));
    return Outcome(::WritePrivateProfileStringW(L"A", L"key", L"other", tstrPath.c_str()) != FALSE);
}

// question, assumed, Wine 8 where it differs, what depends on it
constexpr Assumption kRows[] = {
    {L"CopyFileW onto a hidden file", L"refused (5)", L"done", L"drivers, language files and shortcut backup",
     &CopyOntoHidden},
    {L"CopyFileW onto a read-only file", L"refused (5)", L"done", L"the same copies", &CopyOntoReadOnly},
    {L"DeleteFileW of a read-only file", L"refused (5)", nullptr, L"\"delete_now\" takes the attribute away first",
     &DeleteReadOnly},
    {L"MoveFileExW over a file that somebody reads", L"refused (5)", nullptr,
     L"a replaced file is tried again, then copied onto", &ReplaceOpenFile},
    {L"rights of a file that took another's place", L"2 entries, protected", L"2 entries",
     L"an overwritten driver stays closed to users", &ReplaceFileKeepsRights},
    {L"renaming a folder that is held open", L"refused (32)", L"done",
     L"a folder cannot be exchanged while its files are deleted", &MoveHeldFolder},
    {L"deleting a file below a folder that is held open", L"done", nullptr, L"the same deletion",
     &DeleteBelowHeldFolder},
    {L"a name with trailing blanks and dots", L"the same as without them", nullptr,
     L"what counts as a download path that leads elsewhere", &DropTrailingBlanks},
    {L"two dots and a blank as a part of a path", L"a name of its own", nullptr, L"the same check", &DotsAfterName},
    {L"\"*.*\" and a name without a dot", L"found", nullptr, L"packages may hold such files", &FindWithoutDot},
    {L"GetVolumePathNameW of a file", L"that of its folder", nullptr, L"it is asked once for each folder",
     &VolumeOfFile},
    {L"a new file in the root of the system drive", L"every user may change it", L"users may not change it",
     L"a driver that is copied there keeps the rights of the one it replaces", &RightsBelowDrive},
    {L"GetPrivateProfileSectionW, section missing", L"0 characters, last error 2", L"0 characters, last error 0",
     L"the failure line of a missing section has a code", &MissingSection},
    {L"GetPrivateProfileSectionW, section empty", L"0 characters, last error 0", nullptr,
     L"an empty section is told from a missing one by the code alone", &EmptySection},
    {L"a section that stands twice", L"the first", nullptr, L"the checker's warning", &SectionTwice},
    {L"reading an INI file that nobody else may open", L"default", nullptr,
     L"held update information is looked for before it is read", &HeldIniFile},
    {L"an INI file in UTF-8 without mark", L"in another form", nullptr, L"the guides ask for UTF-16", &IniUtf8},
    {L"an INI file in UTF-8 with its mark", L"in another form", L"as written", L"the guides ask for UTF-16",
     &IniUtf8WithMark},
    {L"an INI file in UTF-16 with its mark", L"as written", nullptr, L"the same", &IniUtf16},
    {L"WritePrivateProfileStringW, file read-only", L"refused (5)", L"done",
     L"update information is then a failure line", &WriteReadOnlyIni},
    {L"WritePrivateProfileStringW, file held by a reader", L"refused (32)", nullptr, L"the same", &WriteHeldIni},
};

}  // namespace

std::span<const Assumption> FileAssumptions()
{
    return kRows;
}

}  // namespace Platform
