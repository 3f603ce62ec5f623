// Files, folders and INI files.
#include "Assumptions.h"

#include "common/KzComn_Handle.h"

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

// question, assumed, Wine 8 where it differs, what depends on it; clang-format would give each trial lines of its own
// clang-format off
constexpr Assumption kRows[] = {
    {L"CopyFileW onto a hidden file", L"refused (5)", L"done", L"drivers, language files and shortcut backup",
     [](const std::wstring& tstrFolder) { return CopyOnto(tstrFolder, FILE_ATTRIBUTE_HIDDEN); }},
    {L"CopyFileW onto a read-only file", L"refused (5)", L"done", L"the same copies",
     [](const std::wstring& tstrFolder) { return CopyOnto(tstrFolder, FILE_ATTRIBUTE_READONLY); }},
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
    {L"a section that stands twice", L"the first", nullptr, L"the checker's warning",
     [](const std::wstring& tstrFolder) -> std::wstring {
         const std::wstring tstrIni = IniAt(tstrFolder, "[B]\r\nkey=1\r\n[A]\r\nother=2\r\n[B]\r\nkey=3\r\nmore=4\r\n");
         wchar_t szText[64] = {};
         return ::GetPrivateProfileSectionW(L"B", szText, 64, tstrIni.c_str()) == 6 ? L"the first" : L"not it alone";
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
