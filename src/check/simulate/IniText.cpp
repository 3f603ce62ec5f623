#include "check/simulate/IniText.h"

#include "common/KzComn_String.h"

#include <algorithm>
#include <cstring>

using namespace KzCommon;

namespace Check {

namespace {

std::wstring_view TrimLine(std::wstring_view tstrText)
{
    return String::Trim(tstrText, L" \t\r\x1A");
}

/// Splits one "key=value" text at its first run of "=".
void AddEntry(const std::wstring& tstrLine, std::vector<std::pair<std::wstring, std::wstring>>& entries)
{
    const std::size_t uValue = tstrLine.find_first_not_of(L'=', std::min(tstrLine.find(L'='), tstrLine.size()));
    if (uValue == std::wstring::npos) return;
    entries.emplace_back(tstrLine.substr(0, uValue - 1), tstrLine.substr(uValue));
}

}  // namespace

bool IsUtf16(std::string_view strBytes) noexcept
{
    return strBytes.starts_with("\xFF\xFE");
}

std::optional<IniLines> ReadIniLines(std::string_view strBytes, const std::wstring& tstrSection)
{
    const std::wstring tstrAll = IsUtf16(strBytes) ? String::FromUtf16(strBytes.substr(2)) : String::FromAnsi(strBytes);
    const std::wstring_view tstrWanted = TrimLine(tstrSection);
    std::optional<IniLines> optLines;
    std::wstring_view tstrRest = tstrAll;
    while (!tstrRest.empty()) {
        const std::size_t uEnd = std::min(tstrRest.find_first_of(L"\r\n"), tstrRest.size());
        const std::wstring_view tstrLine = TrimLine(tstrRest.substr(0, uEnd));
        tstrRest.remove_prefix(std::min(uEnd + 1, tstrRest.size()));
        if (tstrLine.empty() || tstrLine.front() == L';') continue;
        const std::size_t uBracket = tstrLine.rfind(L']');
        if (tstrLine.front() == L'[' && uBracket != std::wstring_view::npos) {
            if (optLines) break;
            if (String::EqualsNoCase(TrimLine(tstrLine.substr(1, uBracket - 1)), tstrWanted)) optLines.emplace();
            continue;
        }
        if (!optLines) continue;
        const std::size_t uEquals = tstrLine.find(L'=');
        std::optional<std::wstring> optValue;
        if (uEquals != std::wstring_view::npos) optValue = TrimLine(tstrLine.substr(uEquals + 1));
        optLines->emplace_back(TrimLine(tstrLine.substr(0, uEquals)), std::move(optValue));
    }
    return optLines;
}

Storage::Ini::Section ToIniSection(const std::optional<IniLines>& optLines, const Storage::Ini::SectionGrowth& growth)
{
    Storage::Ini::Section section;
    if (!optLines || optLines->empty()) {
        section.dwError = ERROR_FILE_NOT_FOUND;
        return section;
    }
    std::size_t cch = 0;
    for (const auto& [tstrKey, optValue] : *optLines) {
        const std::wstring tstrLine = optValue ? tstrKey + L"=" + *optValue : tstrKey;
        AddEntry(tstrLine, section.entries);
        cch += tstrLine.size() + 1;
    }
    section.cchBuffer = growth.cchFirst + (growth.cchLimit - 1 - growth.cchFirst) / growth.cchStep * growth.cchStep;
    const bool bTooLarge = cch + 2 >= section.cchBuffer;
    section.eOutcome = bTooLarge ? Storage::Ini::SectionOutcome::eTooLarge : Storage::Ini::SectionOutcome::eRead;
    if (bTooLarge) section.entries.clear();
    return section;
}

std::wstring AsWritten(const std::wstring& tstrValue, bool bUtf16)
{
    if (bUtf16) return WithoutSpaces(tstrValue);
    const int cch = static_cast<int>(tstrValue.size());
    std::string strBytes(tstrValue.size() * 4, '\0');
    const int cb = ::WideCharToMultiByte(CP_ACP, 0, tstrValue.data(), cch, strBytes.data(),
                                         static_cast<int>(strBytes.size()), nullptr, nullptr);
    strBytes.resize(static_cast<std::size_t>(std::max(cb, 0)));
    return WithoutSpaces(String::FromAnsi(strBytes));
}

std::wstring AsRead(std::wstring_view tstrWritten)
{
    const bool bQuoted = tstrWritten.size() >= 2 && tstrWritten.front() == tstrWritten.back() &&
                         (tstrWritten.front() == L'"' || tstrWritten.front() == L'\'');
    return std::wstring(bQuoted ? tstrWritten.substr(1, tstrWritten.size() - 2) : tstrWritten);
}

std::wstring WithoutSpaces(std::wstring_view tstrText)
{
    return std::wstring(TrimLine(tstrText));
}

}  // namespace Check
