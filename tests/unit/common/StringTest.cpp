#include "common/KzComn_String.h"

#include <gtest/gtest.h>

#include <cerrno>

using namespace KzCommon::String;
using Fields = std::vector<std::wstring>;

TEST(String, PathsAreJoinedWithOneBackslash)
{
    const wchar_t* const rows[][3] = {
        {L"C:\\a", L"b", L"C:\\a\\b"}, {L"C:\\a\\", L"b", L"C:\\a\\b"}, {L"", L"b", L"b"}, {L"C:\\a", L"", L"C:\\a\\"}};
    for (const auto& row : rows) EXPECT_EQ(row[2], JoinPath(row[0], row[1]));
}

TEST(String, FieldsAreSplitAtRunsOfSeparators)
{
    const struct {
        const wchar_t* szText;
        std::size_t cMax;
        Fields fields;
        bool bMore;
    } rows[] = {{L"a!b!c", 3, {L"a", L"b", L"c"}, false},
                {L"!a!!b!", 4, {L"a", L"b"}, false},
                {L"a!b!c", 2, {L"a", L"b"}, true},
                {L"a!b!!", 2, {L"a", L"b"}, false},
                {L"!!!", 4, {}, false},
                {L"a b", 4, {L"a b"}, false}};
    for (const auto& row : rows) {
        bool bMore = !row.bMore;
        EXPECT_EQ(row.fields, SplitFields(row.szText, L'!', row.cMax, bMore)) << ToUtf8(row.szText);
        EXPECT_EQ(row.bMore, bMore) << ToUtf8(row.szText);
    }
}

TEST(String, NumbersAreDigitsThatFitOrZero)
{
    const struct {
        const wchar_t* szText;
        DWORD dwValue;
        ULONGLONG ullValue;
    } rows[] = {{L"0042", 42, 42},
                {L"4294967295", 0xFFFFFFFF, 0xFFFFFFFF},
                {L"4294967296", 0, 0x100000000},
                {L"18446744073709551615", 0, 0xFFFFFFFFFFFFFFFF},
                {L"18446744073709551616", 0, 0}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.dwValue, ToDwordStrict(row.szText)) << ToUtf8(row.szText);
        EXPECT_EQ(row.ullValue, ToQwordStrict(row.szText)) << ToUtf8(row.szText);
    }
    for (const wchar_t* szBad : {L"", L"-1", L"+1", L" 1", L"1 ", L"0x10", L"1,000", L"\x0661"}) {
        EXPECT_EQ(0U, ToDwordStrict(szBad)) << ToUtf8(szBad);
    }
}

TEST(String, ReplacingGoesThroughOnce)
{
    const wchar_t* const rows[][4] = {{L"{A}{A}x{a}", L"{A}", L"{A}{A}", L"{A}{A}{A}{A}x{a}"},
                                      {L"aaa", L"aa", L"a", L"aa"},
                                      {L"text", L"", L"y", L"text"}};
    for (const auto& row : rows) {
        std::wstring tstrText = row[0];
        ReplaceAll(tstrText, row[1], row[2]);
        EXPECT_EQ(row[3], tstrText);
    }
}

TEST(String, PathPartsHaveTheirLimits)
{
    PathParts parts;
    EXPECT_EQ(0, SplitPath(L"D:\\a b\\c.d\\n.x.txt", parts));
    EXPECT_STREQ(L"D:|\\a b\\c.d\\|n.x|.txt",
                 (std::wstring(parts.szDrive) + L"|" + parts.szDir + L"|" + parts.szName + L"|" + parts.szExt).c_str());
    EXPECT_EQ(0, SplitPath(L"C:\\" + std::wstring(255, L'n'), parts));
    EXPECT_EQ(ERANGE, SplitPath(L"C:\\" + std::wstring(256, L'n'), parts));
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
