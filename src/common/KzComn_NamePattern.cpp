#include "common/KzComn_NamePattern.h"

#include "common/KzComn_String.h"

#include <algorithm>
#include <string>

namespace KzCommon::Storage::File {

namespace {

bool IsSameCharacter(wchar_t chLeft, wchar_t chRight)
{
    return chLeft == chRight || String::EqualsNoCase({&chLeft, 1}, {&chRight, 1});
}

/// "*" and "?". PathMatchSpecW would end a pattern at ";", and not end with many "*".
bool MatchesWildcards(std::wstring_view tstrName, std::wstring_view tstrPattern)
{
    std::size_t uName = 0;
    std::size_t uPattern = 0;
    std::size_t uStar = std::wstring_view::npos;
    std::size_t uTaken = 0;  // up to where the last star has taken the name
    while (uName < tstrName.size()) {
        const wchar_t ch = uPattern < tstrPattern.size() ? tstrPattern[uPattern] : L'\0';
        if (ch == L'*') {
            uStar = uPattern++;
            uTaken = uName;
        } else if (ch == L'?' || (ch && IsSameCharacter(ch, tstrName[uName]))) {
            ++uName;
            ++uPattern;
        } else if (uStar != std::wstring_view::npos) {
            uPattern = uStar + 1;
            uName = ++uTaken;
        } else {
            return false;
        }
    }
    return tstrPattern.find_first_not_of(L'*', uPattern) == std::wstring_view::npos;
}

}  // namespace

bool MatchesPattern(std::wstring_view tstrName, std::wstring_view tstrPattern)
{
    if (MatchesWildcards(tstrName, tstrPattern)) return true;
    const std::size_t uDot = tstrName.rfind(L'.');
    if (uDot == std::wstring_view::npos) return MatchesWildcards(std::wstring(tstrName) + L'.', tstrPattern);

    constexpr std::size_t kShortExtension = 3;
    const std::size_t uPatternDot = tstrPattern.rfind(L'.');
    const bool bShort = uPatternDot != std::wstring_view::npos &&
                        tstrPattern.size() - uPatternDot - 1 == kShortExtension &&
                        tstrPattern.find_first_of(L"*?") < uPatternDot;
    return bShort && MatchesWildcards(tstrName.substr(0, uDot + 1 + kShortExtension), tstrPattern);
}

}  // namespace KzCommon::Storage::File
