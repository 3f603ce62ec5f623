#include "agent/IniEdits.h"

#include "agent/Sections.h"

#include "BrevantVersion.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_IniFile.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <vector>

using namespace KzCommon;

namespace {

enum IniField : std::size_t { eSection, eKey, eValue, eIniFields };

void StoreIniValue(const IniTarget& target, const std::wstring& tstrSection, const std::wstring& tstrKey,
                   const std::wstring& tstrValue, Storage::Patience& patience)
{
    if (!Storage::Ini::StoreValue(target.tstrWritten, tstrSection, tstrKey, tstrValue, patience)) {
        Trace(kTraceError, L"KzCommon::Storage::Ini::StoreValue() failed. Error code: %d", ::GetLastError());
        return;
    }
    // A scanner that looks at the file after every change lets it go each time: it costs no change, however many.
    patience.uRepetitions = std::max(patience.uRepetitions, Storage::kHeldRepetitions);
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

void ModifyUpdateInfo(const IniTarget& target)
{
    const OperationTrace trace(L"FrameworkDeployAgent::ModifyUpdateInfo()", target.tstrPath);
    constexpr const Section& kSection = SectionOf(L"UPDATE_INFO", L"ModifyUpdateInfo");
    SectionRecords records;
    if (!ReadSection(kSection, records)) return;
    Storage::Patience patience{kEditRepetitions};
    ForEachRecord(kSection, records, [&](const SectionKey&, const std::wstring& tstrRecord) {
        ModifyIniKeyValue(target, tstrRecord, patience);
        Trace(kTraceInfo, L"*** FrameworkDeployAgent::ModifyUpdateInfo(%s) ", tstrRecord.c_str());
    });
    DeployVersion(target, patience);
}

void ModifyIniKeyValue(const IniTarget& target, const std::wstring& tstrData, Storage::Patience& patience)
{
    const OperationTrace trace(L"FrameworkDeployAgent::ModifyIniKeyValue()", target.tstrPath);
    if (!IsRecordLengthValid(tstrData)) {
        Trace(kTraceError, L"ModifyIniKeyValue(tszData==empty || tszData.size()>1023)");
        return;
    }
    const IniRecord record = ParseIniRecord(tstrData);
    if (record.bTooManyFields) {
        Trace(kTraceError, L"ModifyIniKeyValue() field index>2, too many fields, ignore remaining ones");
    }
    Trace(kTraceInfo, L"[%s] %s=%s", record.tstrSection.c_str(), record.tstrKey.c_str(), record.tstrValue.c_str());
    if (record.IsComplete()) StoreIniValue(target, record.tstrSection, record.tstrKey, record.tstrValue, patience);
}

IniRecord DeployedVersion()
{
    return {.tstrSection = L"COMPONENT_LIST",
            .tstrKey = Process::Is64BitWindows() ? L"Component103_iUD_Version" : L"Component3_iUD_Version",
            .tstrValue = BREVANT_WIDE_VERSION};
}

void DeployVersion(const IniTarget& target, Storage::Patience& patience)
{
    const OperationTrace trace(L"[Enter] DeployVersion(%s)", target.tstrPath, L"[Leve] DeployVersion()");
    const IniRecord version = DeployedVersion();
    StoreIniValue(target, version.tstrSection, version.tstrKey, version.tstrValue, patience);
}
