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

/// A pattern as Windows reads it, without trailing dots and spaces. A star before a dropped dot does not match dots.
struct Wildcards {
    explicit Wildcards(std::wstring_view tstrPattern)
        : tstrText(tstrPattern.substr(0, tstrPattern.find_last_not_of(L". ") + 1)),
          bNoExtension(tstrText.ends_with(L'*') && tstrPattern.find(L'.', tstrText.size()) != std::wstring_view::npos)
    {
    }

    std::wstring_view tstrText;
    bool bNoExtension;
};

/// Whether the rest of a pattern matches the end of a name: stars, question marks, and a dot before one.
bool MatchesEmpty(std::wstring_view tstrRest)
{
    for (std::size_t u = 0; u < tstrRest.size(); ++u) {
        const wchar_t chNext = u + 1 < tstrRest.size() ? tstrRest[u + 1] : L'\0';
        const bool bDot = tstrRest[u] == L'.' && (chNext == L'*' || chNext == L'?');
        if (!bDot && tstrRest[u] != L'*' && tstrRest[u] != L'?') return false;
    }
    return true;
}

/// Matches "*" and "?". A question mark does not match a dot; before a dot and at the end it may match nothing.
/// PathMatchSpecW would end the pattern at ";" and not terminate with many "*".
bool MatchesWildcards(std::wstring_view tstrName, const Wildcards& wildcards)
{
    const std::wstring_view tstrPattern = wildcards.tstrText;
    std::size_t uName = 0;
    std::size_t uPattern = 0;
    std::size_t uStar = std::wstring_view::npos;
    std::size_t uFirst = 0;  // begin and end of the last star's match
    std::size_t uTaken = 0;
    while (uName < tstrName.size()) {
        const wchar_t ch = uPattern < tstrPattern.size() ? tstrPattern[uPattern] : L'\0';
        if (ch == L'*') {
            uStar = uPattern++;
            uFirst = uTaken = uName;
        } else if (ch == L'?') {
            if (tstrName[uName] != L'.') ++uName;
            ++uPattern;
        } else if (ch && IsSameCharacter(ch, tstrName[uName])) {
            ++uName;
            ++uPattern;
        } else if (uStar != std::wstring_view::npos) {
            uPattern = uStar + 1;
            uName = ++uTaken;
        } else {
            return false;
        }
    }
    if (!MatchesEmpty(tstrPattern.substr(uPattern))) return false;
    return !wildcards.bNoExtension || uStar + 1 != tstrPattern.size() ||
           tstrName.find(L'.', uFirst) == std::wstring_view::npos;
}

/// The short name that Windows gives a name with a long extension; empty for any other. Its number may differ.
std::wstring ShortNameOf(std::wstring_view tstrName)
{
    constexpr std::size_t kBase = 6;
    constexpr std::size_t kExtension = 3;
    const std::size_t uDot = tstrName.rfind(L'.');
    if (uDot == std::wstring_view::npos || tstrName.size() - uDot - 1 <= kExtension) return {};
    std::wstring tstrShort(tstrName.substr(0, uDot));
    std::erase_if(tstrShort, [](wchar_t ch) { return ch == L' ' || ch == L'.'; });
    tstrShort.resize(std::min(tstrShort.size(), kBase));
    return tstrShort.append(L"~1").append(tstrName.substr(uDot, 1 + kExtension));
}

}  // namespace

bool MatchesPattern(std::wstring_view tstrName, std::wstring_view tstrPattern)
{
    const Wildcards wildcards(tstrPattern);
    if (MatchesWildcards(tstrName, wildcards)) return true;
    const std::wstring tstrShort = ShortNameOf(tstrName);
    return !tstrShort.empty() && MatchesWildcards(tstrShort, wildcards);
}

}  // namespace KzCommon::Storage::File
