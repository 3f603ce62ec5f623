#include "check/lint/Report.h"

#include "check/update/ShownText.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <tuple>
#include <utility>

using namespace KzCommon;

namespace Check {

namespace {

/// A path below the folder as the user wrote it: with forward slashes where only those were used.
std::wstring Shown(const std::wstring& tstrFolder, const std::wstring& tstrPath)
{
    if (String::IsFullPath(tstrPath)) return tstrPath;
    const bool bForward = tstrFolder.find(L'/') != std::wstring::npos && tstrFolder.find(L'\\') == std::wstring::npos;
    std::wstring tstrShown = tstrFolder;
    if (!tstrShown.empty() && tstrShown.back() != L'/' && tstrShown.back() != L'\\') {
        tstrShown += bForward ? L'/' : L'\\';
    }
    tstrShown += tstrPath;
    if (bForward) std::replace(tstrShown.begin(), tstrShown.end(), L'\\', L'/');
    return tstrShown;
}

/// A text of a file may be of any length.
std::wstring Shortened(std::wstring tstrText)
{
    constexpr std::size_t kMaxCharacters = 2000;
    if (tstrText.size() > kMaxCharacters) tstrText.replace(kMaxCharacters, std::wstring::npos, L"...");
    return tstrText;
}

}  // namespace

void Report::Add(Rule eRule, std::wstring_view tstrPath, TextPosition place, std::wstring tstrText,
                 std::wstring tstrSuggestion)
{
    AddAs(RowOf(eRule).eSeverity, eRule, tstrPath, place, std::move(tstrText), std::move(tstrSuggestion));
}

void Report::AddAs(Severity eSeverity, Rule eRule, std::wstring_view tstrPath, TextPosition place,
                   std::wstring tstrText, std::wstring tstrSuggestion)
{
    m_findings.push_back({eRule, eSeverity, std::wstring(tstrPath), place, OnOneLine(Shortened(std::move(tstrText))),
                          OnOneLine(Shortened(std::move(tstrSuggestion)))});
}

void Report::Remove(const std::function<bool(const Finding&)>& isOut)
{
    std::erase_if(m_findings, isOut);
}

std::vector<Finding> Report::Sorted() const
{
    std::vector<Finding> findings = m_findings;
    const auto order = [](const Finding& finding) {
        return std::tie(finding.tstrPath, finding.place, finding.eRule);
    };
    std::stable_sort(findings.begin(), findings.end(),
                     [&](const Finding& left, const Finding& right) { return order(left) < order(right); });
    return findings;
}

std::size_t Report::Count(Severity eSeverity) const
{
    return static_cast<std::size_t>(std::count_if(
        m_findings.begin(), m_findings.end(), [&](const Finding& finding) { return finding.eSeverity == eSeverity; }));
}

std::wstring FormatText(const Report& report, const std::wstring& tstrFolder)
{
    std::wstring tstrText;
    for (const Finding& finding : report.Sorted()) {
        tstrText += Shown(tstrFolder, finding.tstrPath);
        if (finding.place.uLine > 0) {
            tstrText += L":" + std::to_wstring(finding.place.uLine) + L":" + std::to_wstring(finding.place.uColumn);
        }
        tstrText += finding.eSeverity == Severity::eError ? L": error " : L": warning ";
        tstrText += IdOf(finding.eRule) + L": " + finding.tstrText;
        if (!finding.tstrSuggestion.empty()) tstrText += L"; did you mean \"" + finding.tstrSuggestion + L"\"?";
        tstrText += L"\n";
    }
    return tstrText + Counted(report.Count(Severity::eError), L"error", L"errors") + L", " +
           Counted(report.Count(Severity::eWarning), L"warning", L"warnings") + L"\n";
}

}  // namespace Check
