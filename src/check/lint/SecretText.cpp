#include "check/lint/SecretText.h"

#include "check/lint/CommandWords.h"
#include "check/update/Update.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <iterator>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::wstring_view kSecretWords[] = {L"password", L"passwd", L"passwort", L"kennwort", L"passphrase",
                                              L"pwd",      L"secret", L"token",    L"apikey",   L"credential"};

bool IsNameCharacter(wchar_t ch)
{
    return ::IsCharAlphaNumericW(ch) || ch == L'_' || ch == L'-';
}

/// What is given where a value should be and says that it comes from elsewhere.
bool IsNoSecret(std::wstring_view tstrValue)
{
    return tstrValue.empty() || std::wstring_view(L" \"'%{<*").find(tstrValue.front()) != std::wstring_view::npos ||
           tstrValue == L"0" || tstrValue == L"1";
}

void AddSecret(const std::wstring& tstrName, TextPosition place, Report& report)
{
    report.AddAs(Severity::eWarning, Rule::eSecretInClear, kInstructionFile, place,
                 L"\"" + tstrName + L"\" gives a secret away: everybody who gets the update can read it");
}

}  // namespace

bool IsSecretName(std::wstring_view tstrName)
{
    std::wstring tstrLower = String::LowerCase(std::wstring(tstrName));
    std::erase_if(tstrLower, [](wchar_t ch) { return ch == L'_' || ch == L'-'; });
    return std::any_of(std::begin(kSecretWords), std::end(kSecretWords),
                       [&](std::wstring_view tstrWord) { return tstrLower.ends_with(tstrWord); });
}

std::optional<std::size_t> FindSecret(std::wstring_view tstrText)
{
    for (std::size_t uAt = tstrText.find_first_of(L"=: "); uAt != std::wstring_view::npos;
         uAt = tstrText.find_first_of(L"=: ", uAt + 1)) {
        std::size_t uName = uAt;
        while (uName > 0 && IsNameCharacter(tstrText[uName - 1])) --uName;
        const std::wstring_view tstrName = tstrText.substr(uName, uAt - uName);
        // A space follows only the name of an option.
        const bool bOption = tstrName.starts_with(L'-') || (uName > 0 && tstrText[uName - 1] == L'/');
        const bool bNamed = tstrText[uAt] != L' ' || bOption;
        if (bNamed && IsSecretName(tstrName) && !IsNoSecret(tstrText.substr(uAt + 1))) return uAt + 1;
    }
    return std::nullopt;
}

std::optional<std::size_t> FindGivenPassword(std::wstring_view tstrCommand)
{
    // A command within quotes is split like the others.
    std::wstring tstrPlain(tstrCommand);
    std::ranges::replace(tstrPlain, L'"', L' ');
    const std::vector<Word> words = SplitCommand(tstrPlain);
    const auto is = [&](std::size_t u, std::initializer_list<std::wstring_view> names) {
        return u < words.size() && std::ranges::any_of(names, [&](std::wstring_view tstrName) {
                   return String::EqualsNoCase(words[u].tstrText.substr(words[u].tstrText.rfind(L'\\') + 1), tstrName);
               });
    };
    for (std::size_t u = 0; u < words.size(); ++u) {
        std::size_t uGiven = words.size();
        if (is(u, {L"net", L"net.exe", L"net1", L"net1.exe"}) && is(u + 1, {L"user"})) uGiven = u + 3;
        if (is(u, {L"/rp", L"password="})) uGiven = u + 1;  // of schtasks and sc
        if (u > 1 && is(u - 1, {L"use"}) && is(u - 2, {L"net", L"net.exe"})) {
            // net use [drive] \\server\share PASSWORD
            uGiven = words[u].tstrText.starts_with(L"\\\\") ? u + 1 : u + 2;
        }
        const bool bGiven = uGiven < words.size() && !words[uGiven].tstrText.starts_with(L'/');
        if (bGiven && !IsNoSecret(words[uGiven].tstrText)) return words[uGiven].uBegin;
    }
    return std::nullopt;
}

void CheckSecret(std::wstring_view tstrName, const Field& value, Report& report)
{
    if (IsSecretName(tstrName) && !IsNoSecret(value.tstrText)) {
        AddSecret(std::wstring(tstrName), value.place, report);
    } else if (const std::optional<std::size_t> optAt = FindSecret(value.tstrText)) {
        AddSecret(std::wstring(tstrName), {value.place.uLine, static_cast<unsigned>(value.place.uColumn + *optAt)},
                  report);
    }
}

}  // namespace Check
