#include "agent/IniEdits.h"

#include "agent/Sections.h"

#include "BrevantVersion.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <vector>

using namespace KzCommon;

namespace {

enum IniField : std::size_t { eSection, eKey, eValue, eIniFields };

void StoreIniValue(Machine& machine, const IniTarget& target, const IniRecord& record, Storage::Patience& patience)
{
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.StoreIniValue(target.tstrWritten, record.tstrSection, record.tstrKey, record.tstrValue, patience,
                               &dwError)) {
        Trace(kTraceError, L"KzCommon::Storage::Ini::StoreValue() failed. Error code: %d", dwError);
        return;
    }
    // Each change may meet a scanner that opens the file for a moment after the previous change. Keep enough retries
    // for each of them.
    patience.uRepetitions = std::max(patience.uRepetitions, Storage::kInUseRepetitions);
}

/// Reports a record for which no request is made to the machine.
void ReportRefused(Machine& machine, const IniTarget& target, const std::wstring& tstrName, const wchar_t* szReason)
{
    Change change{.eAction = Action::eWriteIni, .eOutcome = Outcome::eFail};
    change.tstrTarget = target.tstrPath;
    change.tstrName = tstrName;
    change.tstrReason = szReason;
    machine.Report(change);
}

}  // namespace

IniRecord ParseIniRecord(const std::wstring& tstrData)
{
    IniRecord record;
    std::vector<std::wstring> fields = String::SplitFields(tstrData, L'!', eIniFields, record.bTooManyFields);
    fields.resize(eIniFields);
    record.tstrSection = std::move(fields[eSection]);
    record.tstrKey = std::move(fields[eKey]);
    record.tstrValue = std::move(fields[eValue]);
    return record;
}

void ModifyUpdateInfo(Machine& machine, const IniTarget& target)
{
    const OperationTrace trace(L"FrameworkDeployAgent::ModifyUpdateInfo()", target.tstrPath);
    constexpr const Section& kSection = SectionOf(L"UPDATE_INFO", L"ModifyUpdateInfo");
    SectionRecords records;
    if (!ReadSection(machine, kSection, records)) return;
    Storage::Patience patience{kEditRepetitions};
    ForEachRecord(kSection, records, [&](const SectionKey& key, const std::wstring& tstrRecord) {
        ModifyIniKeyValue(machine, target, tstrRecord, patience);
        TraceRecord(key, tstrRecord);
    });
    DeployVersion(machine, target, patience);
}

void ModifyIniKeyValue(Machine& machine, const IniTarget& target, const std::wstring& tstrData,
                       Storage::Patience& patience)
{
    const OperationTrace trace(L"FrameworkDeployAgent::ModifyIniKeyValue()", target.tstrPath);
    if (!IsRecordLengthValid(tstrData)) {
        Trace(kTraceError, L"ModifyIniKeyValue(tszData==empty || tszData.size()>1023)");
        ReportRefused(machine, target, tstrData, kRecordTooLong);
        return;
    }
    const IniRecord record = ParseIniRecord(tstrData);
    if (record.bTooManyFields) {
        Trace(kTraceError, L"ModifyIniKeyValue() field index>2, too many fields, ignore remaining ones");
    }
    Trace(kTraceInfo, L"[%s] %s=%s", record.tstrSection.c_str(), record.tstrKey.c_str(), record.tstrValue.c_str());
    if (!record.IsComplete()) {
        ReportRefused(machine, target, L"[" + record.tstrSection + L"] " + record.tstrKey,
                      L"the record lacks one of its three fields");
        return;
    }
    machine.Explain(record.bTooManyFields ? L"text after the third field is ignored" : L"");
    StoreIniValue(machine, target, record, patience);
}

IniRecord DeployedVersion()
{
    return {.tstrSection = L"COMPONENT_LIST",
            .tstrKey = Process::Is64BitWindows() ? L"Component103_iUD_Version" : L"Component3_iUD_Version",
            .tstrValue = BREVANT_WIDE_VERSION};
}

void DeployVersion(Machine& machine, const IniTarget& target, Storage::Patience& patience)
{
    const OperationTrace trace(L"[Enter] DeployVersion(%s)", target.tstrPath, L"[Leve] DeployVersion()");
    StoreIniValue(machine, target, DeployedVersion(), patience);
}
