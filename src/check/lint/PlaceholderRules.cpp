// B010 to B012: placeholders of the instruction file.
#include "check/lint/Lint.h"
#include "check/update/Instructions.h"
#include "check/update/Suggestion.h"

#include "common/KzComn_String.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

/// A text between braces, or the text at a single brace if the other one is missing.
struct Braced {
    std::size_t uBegin;
    std::wstring tstrText;
    bool bClosed;
};

bool IsWordCharacter(wchar_t ch)
{
    return (ch >= L'a' && ch <= L'z') || (ch >= L'A' && ch <= L'Z') || (ch >= L'0' && ch <= L'9') || ch == L'_' ||
           ch == L' ';
}

/// The word that begins or ends at the brace in `uBrace`; empty where none does.
std::vector<Braced> ListBraced(const std::wstring& tstrText)
{
    std::vector<Braced> found;
    std::size_t uAfter = 0;  // after what was taken last
    for (std::size_t u = tstrText.find_first_of(L"{}"); u != std::wstring::npos;
         u = tstrText.find_first_of(L"{}", uAfter)) {
        std::size_t uBegin = u;
        std::size_t uEnd = u + 1;
        const bool bOpens = tstrText[u] == L'{';
        while (bOpens && uEnd < tstrText.size() && IsWordCharacter(tstrText[uEnd])) ++uEnd;
        while (!bOpens && uBegin > uAfter && IsWordCharacter(tstrText[uBegin - 1])) --uBegin;
        const bool bClosed = bOpens && uEnd < tstrText.size() && tstrText[uEnd] == L'}';
        if (bClosed) ++uEnd;
        found.push_back({uBegin, tstrText.substr(uBegin, uEnd - uBegin), bClosed});
        uAfter = uEnd;
    }
    return found;
}

const std::vector<std::wstring>& Names()
{
    static const std::vector<std::wstring> s_names = [] {
        std::vector<std::wstring> names;
        names.reserve(kPlaceholders.size());
        for (const Placeholder& placeholder : kPlaceholders) names.emplace_back(placeholder.szText);
        return names;
    }();
    return s_names;
}

const Placeholder* FindPlaceholder(std::wstring_view tstrText)
{
    const auto itFound = std::find_if(kPlaceholders.begin(), kPlaceholders.end(),
                                      [&](const Placeholder& placeholder) { return tstrText == placeholder.szText; });
    return itFound == kPlaceholders.end() ? nullptr : &*itFound;
}

void CheckExpanded(const Braced& braced, RecordEffect eEffect, TextPosition place, Report& report)
{
    if (const Placeholder* const pKnown = FindPlaceholder(braced.tstrText)) {
        if (pKnown->bMayBeUnset) {
            report.Add(Rule::eLogFolderMayBeUnset, kInstructionFile, place,
                       braced.tstrText + L" is empty if that log folder is not set" +
                           (IsPath(FormOf(eEffect)) ? L": the path is refused there" : L""));
        }
        return;
    }
    const std::wstring tstrNear = NearestOf(braced.tstrText, Names());
    if (!tstrNear.empty()) {
        report.Add(Rule::eUnknownPlaceholder, kInstructionFile, place,
                   L"\"" + braced.tstrText + L"\" is no placeholder: the text stays as it is", tstrNear);
        return;
    }
    // Braces have other uses in data and commands.
    const bool bWord = braced.bClosed && braced.tstrText.size() > 2 && ::IsCharAlphaW(braced.tstrText[1]);
    if (bWord) {
        report.AddAs(IsPath(FormOf(eEffect)) ? Severity::eError : Severity::eWarning, Rule::eUnknownPlaceholder,
                     kInstructionFile, place,
                     L"\"" + braced.tstrText + L"\" is no placeholder: the text stays as it is");
    }
}

void CheckUnexpanded(const Braced& braced, TextPosition place, Report& report)
{
    const bool bKnown = std::any_of(Names().begin(), Names().end(), [&](const std::wstring& tstrName) {
        return String::EqualsNoCase(tstrName, braced.tstrText);
    });
    if (bKnown) {
        report.Add(Rule::ePlaceholderNotExpanded, kInstructionFile, place,
                   braced.tstrText + L" is not expanded here: it stays as it is");
    }
}

/// From which character of the value placeholders are expanded: of a registry record in the data only.
std::size_t ExpandedFrom(const Instruction& instruction)
{
    if (!instruction.pKey->bPlaceholders) return std::wstring::npos;
    if (FormOf(instruction.pKey->eEffect) != RecordForm::eRegistryValue) return 0;
    constexpr std::size_t kData = 3;
    const std::vector<Field> fields = SplitRecord(*instruction.pRecord);
    if (fields.size() <= kData) return std::wstring::npos;
    return fields[kData].place.uColumn - instruction.pRecord->valuePlace.uColumn;
}

}  // namespace

void CheckPlaceholders(const LintContext& context, Report& report)
{
    for (const Instruction& instruction : ListInstructions(context.instructions)) {
        const IniRecord& record = *instruction.pRecord;
        const std::size_t uExpanded = ExpandedFrom(instruction);
        for (const Braced& braced : ListBraced(record.tstrValue)) {
            const TextPosition place{record.valuePlace.uLine,
                                     static_cast<unsigned>(record.valuePlace.uColumn + braced.uBegin)};
            if (braced.uBegin < uExpanded) {
                CheckUnexpanded(braced, place, report);
            } else {
                CheckExpanded(braced, instruction.pKey->eEffect, place, report);
            }
        }
    }
}

}  // namespace Check
