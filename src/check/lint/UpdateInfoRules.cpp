// B040 to B046: the update information.
#include "check/lint/InstalledRegistry.h"
#include "check/lint/Lint.h"
#include "check/lint/SecretText.h"
#include "check/update/Instructions.h"
#include "check/update/Suggestion.h"
#include "check/update/VersionText.h"

#include "agent/IniEdits.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <span>

using namespace KzCommon;

namespace Check {

namespace {

constexpr wchar_t kSection[] = L"UPDATE_INFO";

constexpr std::size_t kFields = 3;
constexpr std::size_t kKeyField = 1;
constexpr std::size_t kValueField = 2;

void CheckFields(const IniRecord& record, Report& report)
{
    const auto add = [&](Severity eSeverity, TextPosition place, const std::wstring& tstrText) {
        report.AddAs(eSeverity, Rule::eIniFields, kInstructionFile, place, tstrText);
    };
    const std::vector<Field> fields = SplitRecord(record);
    const ::IniRecord parsed = ParseIniRecord(record.tstrValue);
    if (!parsed.IsComplete()) {
        add(Severity::eError, record.valuePlace,
            L"section, key and value are needed: nothing is written; a key cannot be emptied");
    } else if (std::ranges::any_of(std::span(fields).first(kFields), &Field::bEmptyBefore)) {
        add(Severity::eError, record.valuePlace, L"an empty field vanishes: those after it move up");
    } else if (parsed.bTooManyFields) {
        add(Severity::eError, fields[kFields].place,
            L"the value ends at \"!\": only \"" + parsed.tstrValue + L"\" is written");
    }
    for (std::size_t u = 0; u < fields.size() && u < kFields - 1; ++u) {
        const std::wstring& tstrText = fields[u].tstrText;
        if (tstrText.starts_with(L' ') || tstrText.ends_with(L' ')) {
            add(Severity::eWarning, fields[u].place, L"there are spaces beside \"!\"");
        }
    }
}

/// What is known of the file that the records change: the installed one, else the one that the update client lays over
/// it.
struct InfoFile {
    bool bKnown = false;
    IniScan scan;
};

InfoFile FindInfoFile(const Update& update)
{
    InfoFile file;
    std::vector<std::wstring> paths{update.FullPath(kUpdateInfoFile)};
    if (update.InstalledFolder()) paths.insert(paths.begin(), LongPath(*update.InstalledFolder() / kUpdateInfoFile));
    for (const std::wstring& tstrPath : paths) {
        DWORD dwError = ERROR_SUCCESS;
        file.bKnown = file.scan.Read(tstrPath, &dwError);
        if (file.bKnown) break;
    }
    return file;
}

/// Windows writes into a file that is no UTF-16 in the machine's code page.
void CheckStorable(const std::vector<Field>& fields, const InfoFile& file, Report& report)
{
    const bool bUnknown = !file.bKnown;
    if (!bUnknown && file.scan.Encoding() == IniEncoding::eUtf16) return;
    for (const Field& field : fields) {
        const std::wstring& tstrText = field.tstrText;
        const auto itForeign = std::find_if(tstrText.begin(), tstrText.end(), [](wchar_t ch) { return ch >= 0x80; });
        if (itForeign == tstrText.end()) continue;
        const auto uOffset = static_cast<unsigned>(itForeign - tstrText.begin());
        report.AddAs(bUnknown ? Severity::eWarning : Severity::eError, Rule::eIniEncoding, kInstructionFile,
                     {field.place.uLine, field.place.uColumn + uOffset},
                     std::wstring(L"UpdateInfo.ini is ") + (bUnknown ? L"not known to be" : L"not") + L" UTF-16: \"" +
                         tstrText + L"\" is written in the code page of each machine");
        return;
    }
}

/// False for a key that cannot be read again.
bool CheckKey(const Field& key, Report& report)
{
    const std::size_t uFirst = std::min(key.tstrText.find_first_not_of(L' '), key.tstrText.size());
    const wchar_t* szReadAs = nullptr;
    if (key.tstrText.find(L'=') != std::wstring::npos) szReadAs = L"the key before \"=\"";
    if (key.tstrText.find(L';', uFirst) == uFirst) szReadAs = L"a comment";
    if (key.tstrText.find(L'[', uFirst) == uFirst) szReadAs = L"the beginning of another section";
    if (!szReadAs) return true;
    report.Add(Rule::eIniKey, kInstructionFile, key.place,
               L"\"" + key.tstrText + L"\" is read as " + szReadAs + L": choose another key");
    return false;
}

std::wstring Trimmed(const std::wstring& tstrText)
{
    const std::size_t uFirst = std::min(tstrText.find_first_not_of(L' '), tstrText.size());
    return tstrText.substr(uFirst, tstrText.find_last_not_of(L' ') + 1 - uFirst);
}

/// B045 and B046: the key as the file has it.
void CheckInstalledKey(const std::vector<Field>& fields, const InfoFile& file, Report& report)
{
    if (!file.bKnown) return;
    const Field& section = fields.front();
    const Field& key = fields[kKeyField];
    const Field& value = fields[kValueField];
    const IniSection* const pSection = file.scan.Find(Trimmed(section.tstrText));
    if (!pSection) {
        std::vector<std::wstring> sections;
        for (const IniSection& other : file.scan.Sections()) sections.push_back(other.tstrName);
        report.Add(Rule::eUnknownIniKey, kInstructionFile, section.place,
                   L"UpdateInfo.ini has no section [" + section.tstrText + L"]: a new one is written",
                   NearestOf(section.tstrText, sections));
        return;
    }
    std::vector<std::wstring> keys;
    for (const IniRecord& record : pSection->records) {
        keys.push_back(record.tstrKey);
        if (!String::EqualsNoCase(record.tstrKey, Trimmed(key.tstrText))) continue;
        if (IsOlderVersion(value.tstrText, record.tstrValue)) {
            report.Add(Rule::eOlderVersion, kInstructionFile, value.place,
                       L"\"" + value.tstrText + L"\" is older than the installed \"" + record.tstrValue + L"\"");
        }
        return;
    }
    report.Add(
        Rule::eUnknownIniKey, kInstructionFile, key.place,
        L"[" + pSection->tstrName + L"] of UpdateInfo.ini has no key \"" + key.tstrText + L"\": a new one is written",
        NearestOf(key.tstrText, keys));
}

/// The agent records its version after the last record of the section, while it prepares the settings folder.
void CheckVersion(const LintContext& context, Report& report)
{
    const IniScan& scan = context.instructions;
    const IniSection* const pSection = scan.Find(kSection);
    if (scan.Sections().empty() || !context.update.Product().bThere) return;
    if (!pSection || pSection->records.empty()) {
        report.Add(Rule::eVersionNotRecorded, kInstructionFile, pSection ? pSection->place : TextPosition{},
                   std::wstring(L"[UPDATE_INFO] ") + (pSection ? L"is empty" : L"is missing") +
                       L": the old version stays recorded");
    } else if (!Storage::Directory::IsExisted(context.update.FullPath(context.update.SettingFolder()))) {
        report.Add(Rule::eVersionNotRecorded, kInstructionFile, pSection->place,
                   L"[UPDATE_INFO] is ignored, because there is no folder \"" + context.update.SettingFolder().Text() +
                       L"\": the old version stays recorded");
    }
}

}  // namespace

void CheckUpdateInfo(const LintContext& context, Report& report)
{
    const InfoFile file = FindInfoFile(context.update);
    for (const Instruction& instruction : ListInstructions(context.instructions)) {
        if (FormOf(instruction.pKey->eEffect) != RecordForm::eIniValue) continue;
        const IniRecord& record = *instruction.pRecord;
        CheckFields(record, report);
        if (!ParseIniRecord(record.tstrValue).IsComplete()) continue;
        std::vector<Field> fields = SplitRecord(record);
        fields.resize(kFields);
        CheckStorable(fields, file, report);
        if (CheckKey(fields[kKeyField], report)) CheckInstalledKey(fields, file, report);
        CheckSecret(fields[kKeyField].tstrText, fields[kValueField], report);
    }
    for (const std::wstring& tstrFile : context.update.FilesIn(context.update.SettingFolder(), kUpdateInfoFile)) {
        report.Add(Rule::eShipsUpdateInfo, tstrFile, {},
                   L"the file takes the place of the installed one, in which versions are then recorded in vain");
    }
    CheckVersion(context, report);
}

}  // namespace Check
