// Texts, names and paths.
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"
#include "common/QorCommon_Touchpad.h"
#include "support/Testing.h"

using namespace String;
using namespace Storage;

TEST(String, NumbersAreDigitsThatFitOrZero)
{
    const std::tuple<const wchar_t*, DWORD, ULONGLONG> rows[] = {// clang-format off
        {L"0042", 42, 42}, {L"4294967295", 0xFFFFFFFF, 0xFFFFFFFF}, {L"4294967296", 0, 0x100000000},
        {L"18446744073709551615", 0, 0xFFFFFFFFFFFFFFFF}, {L"18446744073709551616", 0, 0}, {L"", 0, 0}, {L"-1", 0, 0},
        {L"+1", 0, 0}, {L" 1", 0, 0}, {L"1 ", 0, 0}, {L"1,000", 0, 0}, {L"\x0661", 0, 0}};  // clang-format on
    for (const auto& [szText, dwValue, ullValue] : rows) {
        EXPECT_EQ(dwValue, ToDwordStrict(szText)) << ToUtf8(szText);
        EXPECT_EQ(ullValue, ToQwordStrict(szText)) << ToUtf8(szText);
    }
}

TEST(String, Utf8IsExactOrRefused)
{
    std::wstring tstrRead;
    EXPECT_TRUE(FromUtf8("\xC3\xBC\xF0\x9F\x94\x91", tstrRead));
    EXPECT_EQ(L"\u00fc\xD83D\xDD11", tstrRead);
    for (const char* szBad : {"\xFF", "a\xC3", "\xC0\x80", "\xED\xA0\x80"}) EXPECT_FALSE(FromUtf8(szBad, tstrRead));
    if (::GetACP() == 1252) {
        EXPECT_EQ(L"\u20ac\u00fc", FromAnsi("\x80\xFC"));
    }
}

TEST(String, WholeDrivesAndSharesAreRecognized)
{
    // A path, the length of its drive or share, and whether that is the whole path.
    const std::tuple<const wchar_t*, std::size_t, bool> rows[] = {
        // clang-format off
        {L"C:\\", 2, true}, {L"C:\\a", 2, false}, {L"C:\\a\\..", 2, true}, {L"C:/", 2, true},
        {L"\\\\s\\h", 5, true}, {L"\\\\s\\h\\", 5, true}, {L"\\\\s", 3, true}, {L"\\\\s\\h\\a", 5, false},
        {L"\\\\?\\C:\\", 6, true}, {L"\\\\?\\C:\\a", 6, false}, {L"\\\\?\\UNC\\s\\h\\", 11, true},
        {L"\\\\?\\UNC\\s\\h\\a\\b", 11, false}};  // clang-format on
    for (const auto& [szPath, cchRoot, bRoot] : rows) {
        EXPECT_EQ(cchRoot, Directory::RootLength(Directory::FullPath(szPath))) << ToUtf8(szPath);
        EXPECT_EQ(bRoot, Directory::IsRoot(szPath)) << ToUtf8(szPath);
    }
}

TEST(String, TheOrderOfSetsIsTheSystemsComparison)
{
    const std::wstring_view texts[] = {L"",       L"a",      L"A",       L"ab",      L"a_",
                                       L"AZ",     L"\u00e4", L"\u00c4b", L"A\u00c4", L"I",
                                       L"\u0131", L"\u00df", L"\u03c3",  L"\u03a3",  L"\u03c2"};
    for (const std::wstring_view tstrLeft : texts) {
        for (const std::wstring_view tstrRight : texts) {
            const int iSystem = ::CompareStringOrdinal(tstrLeft.data(), static_cast<int>(tstrLeft.size()),
                                                       tstrRight.data(), static_cast<int>(tstrRight.size()), TRUE);
            EXPECT_EQ(iSystem == CSTR_LESS_THAN, OrdinalNoCase()(tstrLeft, tstrRight))
                << ToUtf8(tstrLeft) << " " << ToUtf8(tstrRight);
        }
    }
}

TEST(String, VersionsAreComparedPartByPartAsNumbers)
{
    const std::tuple<const wchar_t*, const wchar_t*, bool> rows[] = {// clang-format off
        {L"10.2.0.2", L"10.2.0.3", true}, {L"10.2.0.3", L"10.2.0.3", false}, {L"10.10.0.1", L"10.9", false},
        {L"10.2", L"10.2.0.3", true}, {L"10.2.0.3.1", L"10.2.0.3", false}, {L"9.9.9.9", L"10", true},
        {L"x.1", L"0.1", false}, {L"-1", L"0", true}, {L"...", L"1", true}, {L"1", L"...", false}};  // clang-format on
    for (const auto& [szCurrent, szMinimum, bOlder] : rows)
        EXPECT_EQ(bOlder, QorCommon::IsDriverOlder(szCurrent, szMinimum)) << szCurrent << szMinimum;
}

TEST(String, FoldersAreCreatedWithTheirParents)
{
    const TempFolder folder;
    folder.Write(L"dir\\file", "");
    const std::tuple<std::wstring, bool, DWORD> rows[] = {// clang-format off
        {folder.PathOf(L"a\\b\\"), true, ERROR_DIRECTORY}, {folder.PathOf(L"a\\b"), true, ERROR_DIRECTORY},
        {folder.PathOf(L"e\\\\f\\\\"), true, ERROR_DIRECTORY}, {L"C:\\", true, ERROR_DIRECTORY},
        {folder.PathOf(L"dir\\file"), false, 0}, {folder.PathOf(L"dir\\file\\g"), false, ERROR_PATH_NOT_FOUND},
        {L"Q:\\none\\such", false, ERROR_PATH_NOT_FOUND}, {L"", false, ERROR_BAD_ARGUMENTS}};  // clang-format on
    for (const auto& [tstrPath, bCreated, dwExists] : rows) {
        DWORD dwCreate = 0, dwExist = 0;
        SCOPED_TRACE(ToUtf8(tstrPath));
        EXPECT_EQ(bCreated, Directory::Create(tstrPath, nullptr, &dwCreate) && dwCreate == 0);
        EXPECT_EQ(dwExists == 0, File::IsExisted(tstrPath, &dwExist));
        EXPECT_EQ(dwExists, dwExist);
        EXPECT_EQ(bCreated, Directory::IsExisted(tstrPath));
    }
    EXPECT_THAT(folder.List(), ElementsAre(L"a\\", L"a\\b\\", L"dir\\", L"dir\\file", L"e\\", L"e\\f\\"));
}
