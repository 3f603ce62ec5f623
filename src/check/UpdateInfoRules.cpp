// B040 to B042: the update information.
#include "check/Instructions.h"
#include "check/Lint.h"

#include "agent/IniEdits.h"
#include "common/KzComn_File.h"

using namespace KzCommon;

namespace Check {

namespace {

constexpr wchar_t kSection[] = L"UPDATE_INFO";

void CheckFields(const IniRecord& record, Report& report)
{
    const auto add = [&](Severity eSeverity, Place place, const std::wstring& tstrText) {
        report.AddAs(eSeverity, Rule::eIniFields, kInstructionFile, place, tstrText);
    };
    constexpr std::size_t kFields = 3;
    const std::vector<Field> fields = FieldsOf(record);
    const ::IniRecord parsed = ParseIniRecord(record.tstrValue);
    if (!parsed.IsComplete()) {
        add(Severity::eError, record.valuePlace,
            L"section, key and value are needed: nothing is written; a key cannot be emptied");
    } else if (HasEmptyField(record.tstrValue, kFields - 1)) {
        add(Severity::eError, record.valuePlace, L"an empty field vanishes: those after it move up");
    } else if (parsed.bTooManyFields) {
        add(Severity::eError, fields[kFields].place,
            L"the value ends at \"!\": only \"" + parsed.tstrValue + L"\" is written");
    }
    for (std::size_t u = 0; u < fields.size() && u < kFields - 1; ++u) {
        const std::wstring& tstrText = fields[u].tstrText;
        if (tstrText.starts_with(L' ') || tstrText.ends_with(L' ')) {
            add(Severity::eWarning, fields[u].place, L"there are blanks beside \"!\"");
        }
    }
}

/// The agent records its version after the last record of the section, while it prepares the settings folder.
void CheckVersion(const Subject& subject, Report& report)
{
    const IniScan& scan = subject.instructions;
    const IniSection* const pSection = scan.Find(kSection);
    if (scan.Sections().empty() || !subject.update.Product().bThere) return;
    if (!pSection || pSection->records.empty()) {
        report.Add(Rule::eVersionNotRecorded, kInstructionFile, pSection ? pSection->place : Place{},
                   std::wstring(L"[UPDATE_INFO] ") + (pSection ? L"is empty" : L"is missing") +
                       L": the old version stays recorded");
    } else if (!Storage::Directory::IsExisted(subject.update.FullPath(subject.update.SettingFolder()))) {
        report.Add(Rule::eVersionNotRecorded, kInstructionFile, pSection->place,
                   L"[UPDATE_INFO] is passed over, for there is no folder \"" + subject.update.SettingFolder() +
                       L"\": the old version stays recorded");
    }
}

}  // namespace

void CheckUpdateInfo(const Subject& subject, Report& report)
{
    for (const Instruction& instruction : ListInstructions(subject.instructions)) {
        if (instruction.pKey->eEffect == RecordEffect::eEditIni) CheckFields(*instruction.pRecord, report);
    }
    for (const std::wstring& tstrFile : subject.update.FilesIn(subject.update.SettingFolder(), kUpdateInfoFile)) {
        report.Add(Rule::eShipsUpdateInfo, tstrFile, {},
                   L"the file takes the place of the installed one, in which versions are then recorded in vain");
    }
    CheckVersion(subject, report);
}

}  // namespace Check
