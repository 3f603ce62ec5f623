// The findings of a run of "lint", and the forms in which they are written.
#pragma once

#include "check/lint/Rules.h"
#include "check/update/IniScan.h"
#include "check/update/TextPosition.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// One mistake.
struct Finding {
    Rule eRule;
    Severity eSeverity;
    std::wstring tstrPath;  ///< below the update's folder, or a full path
    TextPosition place;
    std::wstring tstrText;
    std::wstring tstrSuggestion;  ///< what may have been meant; empty when nothing comes near
};

/// Collects findings in any order.
class Report {
public:
    /// Adds a finding with its rule's severity. `tstrPath`: below the update's folder, or a full path.
    void Add(Rule eRule, std::wstring_view tstrPath, TextPosition place, std::wstring tstrText,
             std::wstring tstrSuggestion = {});
    /// Adds one that weighs less or more than its rule says.
    void AddAs(Severity eSeverity, Rule eRule, std::wstring_view tstrPath, TextPosition place, std::wstring tstrText,
               std::wstring tstrSuggestion = {});

    /// Takes the findings out that `isOut` says yes to.
    void Remove(const std::function<bool(const Finding&)>& isOut);

    /// The findings by path, place and rule.
    [[nodiscard]] std::vector<Finding> Sorted() const;
    [[nodiscard]] std::size_t Count(Severity eSeverity) const;

private:
    std::vector<Finding> m_findings;
};

/// One line a finding, `path:line:column: error B010: text; did you mean "..."?`, then one that counts them.
/// `tstrFolder`: the update's folder as the user wrote it; paths are shown below it, with its kind of slashes.
[[nodiscard]] std::wstring FormatText(const Report& report, const std::wstring& tstrFolder);

/// The findings as SARIF 2.1.0, in ASCII. `tstrFolder`: the update's folder, full, with trailing backslash. A finding
/// in the instruction file whose right word is known has it as a fix. The rules' pages are below the URI in the
/// environment's variable BREVANT_GUIDES, without it in the folder "guides" beside the program.
[[nodiscard]] std::string FormatSarif(const Report& report, const std::wstring& tstrFolder,
                                      const IniScan& instructions);

}  // namespace Check
