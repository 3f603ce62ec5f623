// B001 to B009 and B100: the form of the instruction file.
#include "check/lint/Lint.h"
#include "check/update/Instructions.h"
#include "check/update/ShownText.h"
#include "check/update/Suggestion.h"

#include "agent/InstructionFile.h"
#include "common/KzComn_Exception.h"
#include "common/KzComn_File.h"
#include "common/KzComn_IniFile.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

void CheckEncoding(const IniScan& scan, Report& report)
{
    const auto add = [&](TextPosition place, const wchar_t* szText) {
        report.Add(Rule::eEncoding, kInstructionFile, place, szText);
    };
    switch (scan.Encoding()) {
        case IniEncoding::eUtf16:
        case IniEncoding::eAscii: break;
        case IniEncoding::eUtf16Unmarked: add({1, 1}, L"UTF-16 without its BOM"); break;
        case IniEncoding::eOtherMark:
            add({1, 1}, L"the BOM is not that of UTF-16, little-endian: the first line is lost");
            break;
        case IniEncoding::eCodePage:
            add(scan.FirstForeign(), L"a character outside ASCII, and the file is not UTF-16 with its BOM");
            break;
    }
    if (!scan.LoneReturns().empty()) {
        report.Add(Rule::eLineEnd, kInstructionFile, scan.LoneReturns().front(),
                   Counted(scan.LoneReturns().size(), L"line ends", L"lines end") +
                       L" in CR without LF: two lines may be read as one; save the file with CR LF");
    }
    for (const TextPosition& place : scan.Damaged()) add(place, L"half a character: a surrogate without its partner");
}

void CheckRecord(const IniSection& section, const IniRecord& record, const std::vector<std::wstring>& keys,
                 Report& report)
{
    const auto add = [&](Rule eRule, TextPosition place, std::wstring tstrText, std::wstring tstrSuggestion = {}) {
        report.Add(eRule, kInstructionFile, place, std::move(tstrText), std::move(tstrSuggestion));
    };
    if (!record.bEquals) {
        add(Rule::eNoRecord, record.place, L"\"" + record.tstrKey + L"\" is no record: \"=\" is missing");
        return;
    }
    if (record.IsRecord() && std::ranges::find(keys, record.tstrKey) == keys.end()) {
        add(Rule::eUnknownKey, record.place, L"[" + section.tstrName + L"] has no key \"" + record.tstrKey + L"\"",
            NearestOf(record.tstrKey, keys));
    } else if (record.bBlankBefore) {
        add(Rule::eUnknownKey, record.place, L"spaces before \"=\" may become part of the key", record.tstrKey + L"=");
    }
    if (!record.IsRecord()) {
        add(Rule::eValueLength, record.valuePlace, L"the value is empty: the line is ignored");
    } else if (!IsRecordLengthValid(record.tstrValue)) {
        add(Rule::eValueLength, record.valuePlace,
            L"the value has " + std::to_wstring(record.tstrValue.size()) + L" characters, at most " +
                std::to_wstring(kMaxRecordCharacters) + L" are taken");
    }
}

/// The section that may have been meant; one with a language, with the language that was written or an example.
std::wstring NearestSection(const std::wstring& tstrName)
{
    const std::size_t uLanguage = tstrName.rfind(L'_') + 1;
    const std::wstring tstrLanguage = uLanguage < tstrName.size() ? tstrName.substr(uLanguage) : L"EN-US";
    std::vector<std::wstring> names;
    for (const ::Section& row : kSections) {
        names.push_back(row.szName + (row.bLanguage ? tstrLanguage : std::wstring()));
    }
    return NearestOf(tstrName, names);
}

void CheckSectionName(const IniScan& scan, const IniSection& section, bool bKnown, Report& report)
{
    const auto add = [&](Rule eRule, const std::wstring& tstrText, const std::wstring& tstrSuggestion = {}) {
        report.Add(eRule, kInstructionFile, section.place, L"[" + section.tstrName + L"] " + tstrText, tstrSuggestion);
    };
    if (!bKnown) {
        add(Rule::eUnknownSection, L"is no section that anything reads", NearestSection(section.tstrName));
        return;
    }
    const IniSection* const pFirst = scan.Find(section.tstrName);
    if (pFirst != &section) {
        add(Rule::eRepeatedSection,
            L"is already in line " + std::to_wstring(pFirst->place.uLine) + L": Windows reads only that one");
    }
}

/// Compares what was scanned with what Windows and the agent read of the same section.
void CompareWithWindows(const LintContext& context, const IniSection& section, Report& report)
{
    const std::wstring tstrPath = context.update.FullPath(kInstructionFile);
    const auto cScanned = static_cast<std::size_t>(std::count_if(
        section.records.begin(), section.records.end(), [](const IniRecord& record) { return record.IsRecord(); }));
    // Much more room than the agent gives it: a section that fits only here is too long for the agent.
    constexpr Storage::Ini::SectionGrowth kRoomy{0x10000, 0x10000, 0x800000};
    const Storage::Ini::Section read = Storage::Ini::ReadSection(tstrPath, section.tstrName, kRoomy);
    if (read.eOutcome == Storage::Ini::SectionOutcome::eRead && read.entries.size() != cScanned) {
        report.Add(Rule::eScanDiffers, kInstructionFile, section.place,
                   L"[" + section.tstrName + L"] has " + Counted(cScanned, L"record", L"records") +
                       L", but Windows finds " + std::to_wstring(read.entries.size()));
        return;
    }
    SectionRecords records;
    static_cast<void>(Storage::Guarded(nullptr, [&] {
        Storage::IniFile instructions;
        instructions.Open(tstrPath);
        static_cast<void>(ReadSectionRecords(instructions, section.tstrName, records));
    }));
    if (records.empty() && cScanned > 0) {
        const bool bUnread = read.eOutcome == Storage::Ini::SectionOutcome::eFailed;
        report.Add(
            bUnread ? Rule::eScanDiffers : Rule::eSectionTooLong, kInstructionFile, section.place,
            L"[" + section.tstrName + (bUnread ? L"] is not found by Windows" : L"] is too long: it counts as empty"));
    }
}

bool HasRecords(const IniScan& scan, const wchar_t* szSection)
{
    const IniSection* const pSection = scan.Find(szSection);
    return pSection && std::any_of(pSection->records.begin(), pSection->records.end(),
                                   [](const IniRecord& record) { return record.IsRecord(); });
}

/// Whether a key is carried out only if both of its sections can be read.
bool IsRemoval(const SectionKey* pKey)
{
    constexpr const ::Section* kRead[] = {&SectionOf(L"QOR_DIR", L"RemoveFileAfterReboot"),
                                          &SectionOf(L"QOR_FILE", L"RemoveFileAfterReboot")};
    return std::ranges::any_of(kRead, [&](const ::Section* pSection) {
        return std::ranges::any_of(pSection->keys, [&](const SectionKey& key) { return &key == pKey; });
    });
}

/// A removal needs both sections. Where nothing is to be removed, the missing one costs a failure line only.
void CheckRemovalSections(const IniScan& scan, Report& report)
{
    const bool bFolders = HasRecords(scan, L"QOR_DIR");
    const bool bFiles = HasRecords(scan, L"QOR_FILE");
    if (bFolders == bFiles) return;
    const IniSection& there = *scan.Find(bFolders ? L"QOR_DIR" : L"QOR_FILE");
    const std::vector<Instruction> instructions = ListInstructions(scan);
    const bool bRemoves =
        std::ranges::any_of(instructions, [](const Instruction& instruction) { return IsRemoval(instruction.pKey); });
    report.AddAs(bRemoves ? Severity::eError : Severity::eWarning, Rule::eMissingSection, kInstructionFile, there.place,
                 L"[" + there.tstrName + L"] is there without " + (bFolders ? L"[QOR_FILE]" : L"[QOR_DIR]") +
                     L": nothing is removed");
}

}  // namespace

void CheckForm(const LintContext& context, Report& report)
{
    const IniScan& scan = context.instructions;
    CheckEncoding(scan, report);
    if (scan.Sections().empty()) {
        const bool bThere = Storage::File::IsExisted(context.update.FullPath(kInstructionFile));
        report.Add(
            Rule::eMissingSection, kInstructionFile, {},
            std::wstring(bThere ? L"there is no section" : L"the file is missing") + L": nothing is carried out");
    }
    for (const IniRecord& record : scan.Stray()) {
        report.Add(Rule::eNoRecord, kInstructionFile, record.place, L"the line is before the first section");
    }
    for (const IniSection& section : scan.Sections()) {
        const std::vector<std::wstring> keys = KeysOf(section.tstrName);
        CheckSectionName(scan, section, !keys.empty(), report);
        if (keys.empty()) continue;
        for (const IniRecord& record : section.records) CheckRecord(section, record, keys, report);
        // In another encoding the two may differ, and the encoding is the mistake.
        const bool bSame = scan.Encoding() != IniEncoding::eOtherMark && scan.Encoding() != IniEncoding::eUtf16Unmarked;
        if (bSame && scan.Find(section.tstrName) == &section) CompareWithWindows(context, section, report);
    }
    CheckRemovalSections(scan, report);
}

}  // namespace Check
