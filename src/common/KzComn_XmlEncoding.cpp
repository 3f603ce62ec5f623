#include "common/KzComn_XmlEncoding.h"

#include <algorithm>
#include <charconv>

namespace KzCommon::Storage {

namespace {

/// Encodings with a number at the end of their name: the offset to the code page.
constexpr struct {
    std::string_view strPrefix;
    UINT uBase;
} kNumbered[] = {
    {"windows-", 0},      {"cp", 0},           {"ibm", 0},           {"ibm-", 0},
    {"iso-8859-", 28590}, {"iso8859-", 28590}, {"iso_8859-", 28590},
};

constexpr struct {
    std::string_view strName;
    UINT uCodePage;
} kNamed[] = {
    {"koi8-r", 20866}, {"koi8-u", 21866}, {"tis-620", 874},  {"macintosh", 10000},
    {"latin2", 28592}, {"latin5", 28599}, {"latin9", 28605},
};

constexpr char Lower(char ch) noexcept
{
    return ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch - 'A' + 'a') : ch;
}

bool StartsWith(std::string_view strText, std::string_view strLowerPrefix) noexcept
{
    return strText.size() >= strLowerPrefix.size() &&
           std::equal(strLowerPrefix.begin(), strLowerPrefix.end(), strText.begin(),
                      [](char chPrefix, char ch) { return chPrefix == Lower(ch); });
}

/// 0 (elsewhere a valid code page) for an unknown name.
UINT CodePageOf(std::string_view strName) noexcept
{
    for (const auto& row : kNamed) {
        if (row.strName.size() == strName.size() && StartsWith(strName, row.strName)) return row.uCodePage;
    }
    for (const auto& row : kNumbered) {
        if (!StartsWith(strName, row.strPrefix)) continue;
        const std::string_view strNumber = strName.substr(row.strPrefix.size());
        unsigned uNumber = 0;
        const auto [pchEnd, error] = std::from_chars(strNumber.data(), strNumber.data() + strNumber.size(), uNumber);
        if (error != std::errc() || pchEnd != strNumber.data() + strNumber.size() || uNumber > 0xFFFF) continue;
        return uNumber == 0 ? 0 : row.uBase + uNumber;
    }
    return 0;
}

}  // namespace

bool FindSingleByteEncoding(std::string_view strName, ByteCharacters& characters) noexcept
{
    const UINT uCodePage = CodePageOf(strName);
    CPINFO info{};
    if (uCodePage == 0 || !::GetCPInfo(uCodePage, &info) || info.MaxCharSize != 1) return false;
    for (std::size_t uByte = 0; uByte < characters.size(); ++uByte) {
        const char chByte = static_cast<char>(uByte);
        wchar_t chWide = L'\0';
        const int cch = ::MultiByteToWideChar(uCodePage, MB_ERR_INVALID_CHARS, &chByte, 1, &chWide, 1);
        characters[uByte] = cch == 1 ? static_cast<int>(chWide) : -1;
    }
    return true;
}

}  // namespace KzCommon::Storage
