// B090 to B093: the texts that the update brings for each language.
#include "check/lint/Lint.h"
#include "check/update/ErrorText.h"
#include "check/update/Instructions.h"
#include "check/update/Suggestion.h"

#include "agent/NewNameDecision.h"
#include "agent/RegistryPatch.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_File.h"

#include "common/KzComn_IniFile.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"
#include "common/L10nReader.h"

#include <algorithm>
#include <optional>

using namespace KzCommon;

namespace Check {

namespace {

constexpr wchar_t kTable[] = L"StringTable.ini";
constexpr wchar_t kGlobal[] = L"Global";
const std::wstring kProductName = kProductNameText;

void CheckTableEncoding(const IniScan& scan, const std::wstring& tstrFile, Report& report)
{
    const bool bForeign = scan.FirstForeign().uLine > 0;
    const bool bBorne = scan.Encoding() == IniEncoding::eUtf16 || scan.Encoding() == IniEncoding::eAscii;
    if (!bBorne) {
        report.Add(Rule::eStringTable, tstrFile, bForeign ? scan.FirstForeign() : TextPosition{1, 1},
                   L"the table is neither UTF-16 with its BOM nor plain ASCII");
    }
    if (!scan.LoneReturns().empty()) {
        report.Add(Rule::eLineEnd, tstrFile, scan.LoneReturns().front(),
                   L"CR without LF: two lines may be read as one; save the file with CR LF");
    }
    for (const TextPosition& place : scan.Damaged()) {
        report.Add(Rule::eStringTable, tstrFile, place, L"half a character: a surrogate without its partner");
    }
}

/// B093: quotes that Windows' functions for a whole section leave where they are.
void CheckQuotes(const IniRecord& record, const std::wstring& tstrFile, Report& report)
{
    const std::wstring& tstrText = record.tstrValue;
    const std::size_t cch = tstrText.size();
    if (cch < 2 || tstrText.front() != tstrText.back() || (tstrText.front() != L'"' && tstrText.front() != L'\''))
        return;
    report.Add(Rule::eQuotedText, tstrFile, record.valuePlace,
               L"the quotes are part of the text, and users see them: remove the quotes", tstrText.substr(1, cch - 2));
}

void CheckTable(const Update& update, const std::wstring& tstrFile, Report& report)
{
    IniScan scan;
    DWORD dwError = ERROR_SUCCESS;
    const auto add = [&](TextPosition place, const std::wstring& tstrText, const std::wstring& tstrSuggestion = {}) {
        report.Add(Rule::eStringTable, tstrFile, place, tstrText, tstrSuggestion);
    };
    if (!scan.Read(update.FullPath(tstrFile), &dwError)) {
        add({}, L"the table cannot be read: " + DescribeError(dwError));
        return;
    }
    CheckTableEncoding(scan, tstrFile, report);
    const IniSection* const pGlobal = scan.Find(kGlobal);
    if (!pGlobal) {
        add({}, L"the table has no section [Global]");
        return;
    }
    const Storage::Ini::Section read =
        Storage::Ini::ReadSection(update.FullPath(tstrFile), kGlobal, kStringTableGrowth);
    if (read.eOutcome == Storage::Ini::SectionOutcome::eTooLarge) {
        add(pGlobal->place, L"[Global] is too long: Windows does not read it");
        return;
    }
    std::vector<std::wstring> keys;
    for (const IniRecord& record : pGlobal->records) {
        if (!record.IsRecord()) continue;
        if (record.tstrKey == kProductName) {
            CheckQuotes(record, tstrFile, report);
            return;
        }
        keys.push_back(record.tstrKey);
    }
    const std::wstring tstrNear = NearestOf(kProductName, keys);
    const auto itNear = std::find_if(pGlobal->records.begin(), pGlobal->records.end(),
                                     [&](const IniRecord& record) { return record.tstrKey == tstrNear; });
    const bool bNear = !tstrNear.empty() && itNear != pGlobal->records.end();
    add(bNear ? itNear->place : pGlobal->place, L"[Global] has no text " + kProductName, bNear ? kProductName : L"");
}

/// The string tables of every language: one folder a language below the resource folders.
std::vector<std::wstring> Tables(const Update& update)
{
    std::vector<std::wstring> tables;
    for (const std::wstring& tstrFile : update.Files()) {
        const std::size_t uName = tstrFile.rfind(L'\\') + 1;
        if (!String::EqualsNoCase(std::wstring_view(tstrFile).substr(uName), kTable) || uName < 2) continue;
        const std::size_t uLanguage = tstrFile.rfind(L'\\', uName - 2) + 1;
        for (const std::wstring& tstrFolder : update.ResourceFolders()) {
            if (String::EqualsNoCase(std::wstring_view(tstrFile).substr(0, uLanguage), tstrFolder)) {
                tables.push_back(tstrFile);
            }
        }
    }
    return tables;
}

constexpr const ::Section& kQuestion = SectionOf(L"RestartNotification_", L"RemindToReboot");

void CheckNotification(const IniSection& section, Report& report)
{
    std::size_t cTexts = 0;
    for (const IniRecord& record : section.records) {
        if (!record.IsRecord() || record.tstrKey != kQuestion.keys.begin()->szKey) continue;
        CheckQuotes(record, kInstructionFile, report);
        if (++cTexts != 3) continue;
        report.Add(Rule::eNotification, kInstructionFile, record.place,
                   L"title and message are the first two texts: this one is never shown");
    }
    if (cTexts >= 2) return;
    report.Add(Rule::eNotification, kInstructionFile, section.place,
               L"[" + section.tstrName + L"] " +
                   (cTexts == 0 ? L"has neither title nor message" : L"has a title but no message") +
                   L": a built-in English text is shown");
}

/// The texts of the product's key as the run finds them when it decides about the new name.
class ProductTexts {
public:
    explicit ProductTexts(const LintContext& context)
        : m_instructions(ListInstructions(context.instructions)),
          m_bThisMachine(context.update.InstalledFolder() &&
                         String::EqualsNoCase(Frwk::Utility::GetInstalledFolder(WindowsMachine()),
                                              *context.update.InstalledFolder()))
    {
    }

    /// Whether the installed product that the update is compared with is the one of this machine.
    [[nodiscard]] bool IsThisMachine() const noexcept { return m_bThisMachine; }

    /// What the update writes last, else what this machine has; nothing when that is not known.
    [[nodiscard]] std::optional<std::wstring> TextOf(const wchar_t* szName) const
    {
        std::optional<std::wstring> optText;
        if (m_bThisMachine) optText = Frwk::Utility::GetStrFromHKLM_KZVLT(WindowsMachine(), szName, L"");
        for (const Instruction& instruction : m_instructions) {
            if (instruction.pKey->eEffect != RecordEffect::eWriteValue) continue;
            const RegistryRecord record = ParseRegistryRecord(instruction.pRecord->tstrValue);
            if (record.eType == RegistryType::eText && String::EqualsNoCase(record.tstrValueName, szName) &&
                String::EqualsNoCase(KeyPathOf(record.tstrKeyPath), Frwk::Utility::kProductKey)) {
                optText = record.tstrData;
            }
        }
        return optText;
    }

private:
    std::vector<Instruction> m_instructions;
    bool m_bThisMachine;
};

/// Whether the run gives the product its new name; nothing when the product's version is not known.
std::optional<bool> IsNewNameDue(const ProductTexts& texts)
{
    if (texts.TextOf(kMarkerName) == kMarkerData) return false;
    const std::optional<std::wstring> optVersion = texts.TextOf(L"Version");
    if (!optVersion) return std::nullopt;
    std::wstring tstrBuild;
    return JudgeNewName(texts.TextOf(L"Language").value_or(L""), *optVersion, tstrBuild) == NewNameNeed::eDue;
}

/// Whether the installed product has a string table for each of `languages`, or, if that is empty, for any language.
bool HasInstalledTable(const std::wstring& tstrInstalled, const std::vector<std::wstring>& languages)
{
    const std::wstring tstrResource = tstrInstalled + L"Resource\\";
    const auto has = [&](const std::wstring& tstrLanguage) {
        return Storage::File::IsExisted(LongPath(tstrResource + tstrLanguage + L"\\" + kTable));
    };
    if (!languages.empty()) return std::all_of(languages.begin(), languages.end(), has);
    bool bHas = false;
    static_cast<void>(Storage::Directory::ForEachEntry(
        tstrResource, L"*", [&](const Storage::Directory::Entry& entry) { bHas = bHas || has(entry.tstrName); },
        nullptr));
    return bHas;
}

/// B092 of an update without any string table; B072 tells of languages that it lacks beside others. The question's
/// texts are read for the new name only: where the product's version is not known, they say that it may be due.
void CheckNewNameTexts(const LintContext& context, Report& report)
{
    const std::vector<IniSection>& sections = context.instructions.Sections();
    const auto itQuestion = std::find_if(sections.begin(), sections.end(), [](const IniSection& section) {
        return IsNamed(kQuestion, section.tstrName);
    });
    const bool bQuestion = itQuestion != sections.end();
    const ProductTexts texts(context);
    const std::optional<bool> optDue = IsNewNameDue(texts);
    if (!optDue.value_or(bQuestion)) return;
    std::vector<std::wstring> languages = context.languages;
    if (languages.empty() && texts.IsThisMachine()) languages.push_back(Frwk::Utility::GetLanguage(WindowsMachine()));
    const std::optional<Folder>& optInstalled = context.update.InstalledFolder();
    if (optInstalled && HasInstalledTable(*optInstalled, languages)) return;
    report.AddAs(optDue ? Severity::eError : Severity::eWarning, Rule::eNewNameTexts, kInstructionFile,
                 bQuestion ? itQuestion->place : TextPosition{},
                 std::wstring(L"the new name ") + (optDue ? L"is due" : L"may be due") +
                     L" and the update brings no string table: " +
                     (optInstalled ? L"" : L"where the machine has none, ") +
                     L"the product's names are emptied for good");
}

}  // namespace

void CheckTexts(const LintContext& context, Report& report)
{
    const std::vector<std::wstring> tables = Tables(context.update);
    for (const std::wstring& tstrFile : tables) CheckTable(context.update, tstrFile, report);
    if (tables.empty()) CheckNewNameTexts(context, report);
    for (const IniSection& section : context.instructions.Sections()) {
        const bool bRead = context.instructions.Find(section.tstrName) == &section;
        if (bRead && IsNamed(kQuestion, section.tstrName)) CheckNotification(section, report);
    }
}

}  // namespace Check
