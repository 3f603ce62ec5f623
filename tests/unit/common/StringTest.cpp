#include "common/KzComn_String.h"

#include <gtest/gtest.h>

using namespace KzCommon::String;

TEST(String, FieldsAreSplitAtRunsOfSeparators)
{
    const std::tuple<const wchar_t*, std::size_t, std::vector<std::wstring>, bool> rows[] = {
        // clang-format off
        {L"!a!!b!", 4, {L"a", L"b"}, false}, {L"a!b!c", 2, {L"a", L"b"}, true},
        {L"a!b!!", 2, {L"a", L"b"}, false}, {L"!!!", 4, {}, false}};  // clang-format on
    for (const auto& [szText, cMax, fields, bExpected] : rows) {
        bool bMore = !bExpected;
        EXPECT_EQ(fields, SplitFields(szText, L'!', cMax, bMore)) << ToUtf8(szText);
        EXPECT_EQ(bExpected, bMore) << ToUtf8(szText);
    }
}

TEST(String, NumbersAreDigitsThatFitOrZero)
{
    const std::tuple<const wchar_t*, DWORD, ULONGLONG> rows[] = {// clang-format off
        {L"0042", 42, 42}, {L"4294967295", 0xFFFFFFFF, 0xFFFFFFFF}, {L"4294967296", 0, 0x100000000},
        {L"18446744073709551615", 0, 0xFFFFFFFFFFFFFFFF}, {L"18446744073709551616", 0, 0}, {L"", 0, 0}, {L"-1", 0, 0},
        {L"+1", 0, 0}, {L" 1", 0, 0}, {L"1 ", 0, 0}, {L"0x10", 0, 0}, {L"1,000", 0, 0}, {L"\x0661", 0, 0}};
    // clang-format on
    for (const auto& [szText, dwValue, ullValue] : rows) {
        EXPECT_EQ(dwValue, ToDwordStrict(szText)) << ToUtf8(szText);
        EXPECT_EQ(ullValue, ToQwordStrict(szText)) << ToUtf8(szText);
    }
}

TEST(String, Utf8IsExactBothWaysOrRefused)
{
    std::wstring tstrRead;
    EXPECT_EQ("Schl\xC3\xBCssel \xF0\x9F\x94\x91", ToUtf8(L"Schlüssel \xD83D\xDD11"));
    EXPECT_TRUE(FromUtf8("Schl\xC3\xBCssel \xF0\x9F\x94\x91", tstrRead));
    EXPECT_EQ(L"Schlüssel \xD83D\xDD11", tstrRead);
    EXPECT_EQ("a\xEF\xBF\xBD", ToUtf8(L"a\xD83D"));
    for (const char* szBad : {"\xFF", "a\xC3", "\xC0\x80", "\xED\xA0\x80"}) EXPECT_FALSE(FromUtf8(szBad, tstrRead));
}

TEST(String, PathsAreFullOnlyWithADriveAndASlashOrAsAShare)
{
    for (const wchar_t* szPath : {L"C:\\", L"c:/a", L"\\\\s\\h", L"//s/h", L"\\\\?\\C:\\a"}) {
        EXPECT_TRUE(IsFullPath(szPath)) << ToUtf8(szPath);
    }
    for (const wchar_t* szPath :
         {L"", L"a", L"C:", L"C:a", L"C:a\\b", L"\\a", L"/a\\b", L"..\\a", L"a\\b", L".\\", L"\\"}) {
        EXPECT_FALSE(IsFullPath(szPath)) << ToUtf8(szPath);
    }
    // Folder, name, and the results of JoinPath() and FolderBelow().
    const std::tuple<const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*> rows[] = {
        // clang-format off
        {L"C:\\a", L"b", L"C:\\a\\b", L"C:\\a\\b\\"}, {L"C:\\a\\", L"b\\", L"C:\\a\\b\\", L"C:\\a\\b\\"},
        {L"", L"b", L"b", L""}, {L"C:\\", L"", L"C:\\", L"C:\\"}};  // clang-format on
    for (const auto& [szFolder, szName, szJoined, szBelow] : rows) {
        EXPECT_EQ(szJoined, JoinPath(szFolder, szName));
        EXPECT_EQ(szBelow, FolderBelow(szFolder, szName));
    }
}

TEST(String, TheOrderOfSetsIsTheSystemsComparison)
{
    const std::wstring_view texts[] = {L"",       L"a",       L"A",       L"ab",      L"a_",     L"AZ",
                                       L"\u00e4", L"\u00c4b", L"a\u00e4", L"A\u00c4", L"\u0131", L"I",
                                       L"z",      L"\u00df",  L"ss",      L"\u03c3",  L"\u03a3", L"\u03c2"};
    for (const std::wstring_view tstrLeft : texts) {
        for (const std::wstring_view tstrRight : texts) {
            const int iSystem = ::CompareStringOrdinal(tstrLeft.data(), static_cast<int>(tstrLeft.size()),
                                                       tstrRight.data(), static_cast<int>(tstrRight.size()), TRUE);
            EXPECT_EQ(iSystem == CSTR_LESS_THAN, OrdinalNoCase()(tstrLeft, tstrRight))
                << ToUtf8(tstrLeft) << " " << ToUtf8(tstrRight);
        }
    }
}

TEST(String, APathIsSplitOrItsCodeIsLeftBehind)
{
    const std::wstring tstrLong(256, L'x');
    const std::tuple<std::wstring, int, DWORD> rows[] = {{L"C:\\a\\b.c.d", 0, 77},
                                                         {L"C:\\" + tstrLong, ERANGE, ERROR_BUFFER_OVERFLOW},
                                                         {L"C:\\" + tstrLong + L"\\a", ERANGE, ERROR_BUFFER_OVERFLOW},
                                                         {L"a." + tstrLong, ERANGE, ERROR_BUFFER_OVERFLOW}};
    for (const auto& [tstrPath, iExpected, dwLeft] : rows) {
        PathParts parts;
        ::SetLastError(77);
        EXPECT_EQ(iExpected, SplitPath(tstrPath, parts)) << ToUtf8(tstrPath);
        EXPECT_EQ(dwLeft, ::GetLastError()) << ToUtf8(tstrPath);
        if (iExpected != 0) continue;
        EXPECT_EQ(L"C:|\\a\\|b.c|.d",
                  std::wstring(parts.szDrive) + L"|" + parts.szDir + L"|" + parts.szName + L"|" + parts.szExt);
    }
}
