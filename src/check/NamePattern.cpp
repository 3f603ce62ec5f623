#include "check/NamePattern.h"

#include "check/Instructions.h"

#include <algorithm>
#include <string_view>

namespace Check {

namespace {

/// "*" and "?", both texts in lower case. PathMatchSpecW would end a pattern at ";", and not end with many "*".
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
        } else if (ch == L'?' || (ch && ch == tstrName[uName])) {
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

bool MatchesPattern(const std::wstring& tstrName, const std::wstring& tstrPattern)
{
    const std::wstring tstrLowerPattern = LowerCase(tstrPattern);
    std::wstring tstrLower = LowerCase(tstrName);
    if (MatchesWildcards(tstrLower, tstrLowerPattern)) return true;
    const std::size_t uDot = tstrLower.rfind(L'.');
    if (uDot == std::wstring::npos) return MatchesWildcards(tstrLower + L'.', tstrLowerPattern);

    constexpr std::size_t kShortExtension = 3;
    const std::size_t uPatternDot = tstrLowerPattern.rfind(L'.');
    const bool bShort = uPatternDot != std::wstring::npos &&
                        tstrLowerPattern.size() - uPatternDot - 1 == kShortExtension &&
                        tstrLowerPattern.find_first_of(L"*?") < uPatternDot;
    if (!bShort) return false;
    tstrLower.resize(std::min(tstrLower.size(), uDot + 1 + kShortExtension));
    return MatchesWildcards(tstrLower, tstrLowerPattern);
}

}  // namespace Check
