#include "common/KzComn_String.h"

#include <gtest/gtest.h>

#include <cerrno>

using namespace KzCommon::String;
using Fields = std::vector<std::wstring>;

TEST(String, PathsAreJoinedWithOneBackslash)
{
    const struct {
        const wchar_t* szFolder;
        const wchar_t* szName;
        const wchar_t* szJoined;
        bool bFull;
    } rows[] = {
        {L"C:\\a", L"b", L"C:\\a\\b", true}, {L"C:\\a\\", L"b", L"C:\\a\\b", true},   {L"", L"b", L"b", false},
        {L".\\", L"b", L".\\b", false},      {L"\\\\s\\h", L"", L"\\\\s\\h\\", true}, {L"C:", L"b", L"C:\\b", true}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.szJoined, JoinPath(row.szFolder, row.szName));
        EXPECT_EQ(row.bFull, IsFullPath(JoinPath(row.szFolder, row.szName))) << ToUtf8(row.szJoined);
    }
}

TEST(String, FieldsAreSplitAtRunsOfSeparators)
{
    const struct {
        const wchar_t* szText;
        std::size_t cMax;
        Fields fields;
        bool bMore;
    } rows[] = {
        {L"a!b!c", 4, {L"a", L"b", L"c"}, false},
        {L"!a!!b!", 4, {L"a", L"b"}, false},
        {L"a!b!c", 2, {L"a", L"b"}, true},
        {L"a!b!!", 2, {L"a", L"b"}, false},
        {L"", 4, {}, false},
        {L"!!!", 4, {}, false},
        {L"a b", 4, {L"a b"}, false},
    };
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
    } rows[] = {{L"0", 0, 0},
                {L"0042", 42, 42},
                {L"4294967295", 0xFFFFFFFF, 0xFFFFFFFF},
                {L"4294967296", 0, 0x100000000},
                {L"18446744073709551615", 0, 0xFFFFFFFFFFFFFFFF},
                {L"18446744073709551616", 0, 0},
                {L"", 0, 0},
                {L"-1", 0, 0},
                {L"+1", 0, 0},
                {L" 1", 0, 0},
                {L"1 ", 0, 0},
                {L"0x10", 0, 0},
                {L"1,000", 0, 0},
                {L"\x0661", 0, 0}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.dwValue, ToDwordStrict(row.szText)) << ToUtf8(row.szText);
        EXPECT_EQ(row.ullValue, ToQwordStrict(row.szText)) << ToUtf8(row.szText);
    }
}

TEST(String, ReplacingGoesThroughOnce)
{
    const wchar_t* const rows[][4] = {{L"{A}{A}x{a}", L"{A}", L"{A}{A}", L"{A}{A}{A}{A}x{a}"},
                                      {L"aaa", L"aa", L"a", L"aa"},
                                      {L"text", L"", L"y", L"text"},
                                      {L"text", L"text", L"", L""}};
    for (const auto& row : rows) {
        std::wstring tstrText = row[0];
        ReplaceAll(tstrText, row[1], row[2]);
        EXPECT_EQ(row[3], tstrText);
    }
}

TEST(String, CaseIsFoldedOrdinally)
{
    EXPECT_TRUE(EqualsNoCase(L"Äpfel", L"äPFEL"));
    EXPECT_TRUE(EqualsNoCase(L"", L""));
    EXPECT_FALSE(EqualsNoCase(L"straße", L"strasse"));
    EXPECT_FALSE(EqualsNoCase(L"a", L"ab"));
}

TEST(String, PathPartsHaveTheirLimits)
{
    PathParts parts;
    EXPECT_EQ(0, SplitPath(L"D:\\a b\\c.d\\n.x.txt", parts));
    EXPECT_STREQ(L"D:", parts.szDrive);
    EXPECT_STREQ(L"\\a b\\c.d\\", parts.szDir);
    EXPECT_STREQ(L"n.x", parts.szName);
    EXPECT_STREQ(L".txt", parts.szExt);
    EXPECT_EQ(0, SplitPath(L"C:\\" + std::wstring(255, L'n'), parts));
    EXPECT_EQ(ERANGE, SplitPath(L"C:\\" + std::wstring(256, L'n'), parts));
}

TEST(String, Utf8IsExactBothWaysOrRefused)
{
    const std::pair<const wchar_t*, const char*> rows[] = {
        {L"", ""}, {L"Schlüssel", "Schl\xC3\xBCssel"}, {L"鍵\xD83D\xDD11", "\xE9\x8D\xB5\xF0\x9F\x94\x91"}};
    for (const auto& [szWide, szBytes] : rows) {
        std::wstring tstrRead = L"before";
        EXPECT_EQ(szBytes, ToUtf8(szWide));
        EXPECT_TRUE(FromUtf8(szBytes, tstrRead));
        EXPECT_EQ(szWide, tstrRead);
    }
    EXPECT_EQ("a\xEF\xBF\xBD", ToUtf8(L"a\xD83D"));
    for (const char* szBad : {"\xFF", "a\xC3", "\xC0\x80", "\xED\xA0\x80"}) {
        std::wstring tstrRead = L"before";
        EXPECT_FALSE(FromUtf8(szBad, tstrRead));
        EXPECT_EQ(L"before", tstrRead);
    }
}
