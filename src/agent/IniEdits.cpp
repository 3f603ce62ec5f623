// The update information records of the instruction file.
#include "agent/QorDeployAgent.h"

#include "BrevantVersion.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_IniFile.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace {

enum Field : std::size_t { eSection, eKey, eValue, eFieldCount };

void StoreIniValue(const std::wstring& tstrIniPath, const std::wstring& tstrSection, const std::wstring& tstrKey,
                   const std::wstring& tstrValue)
{
    if (!Storage::Ini::StoreValue(tstrIniPath, tstrSection, tstrKey, tstrValue)) {
        Trace(kTraceError, L"KzCommon::Storage::Ini::StoreValue() failed. Error code: %d", ::GetLastError());
    }
}

}  // namespace

void FrameworkDeployAgent::ModifyUpdateInfo(const std::wstring& tstrIniPath)
{
    const OperationTrace trace(L"FrameworkDeployAgent::ModifyUpdateInfo()", tstrIniPath);
    SectionRecords records;
    DWORD dwError = ERROR_SUCCESS;
    if (!ReadInstructions(L"UPDATE_INFO", records, dwError)) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::ModifyUpdateInfo() - QueryValue failed. [0x%08x]", dwError);
        return;
    }
    ForEachRecord(records, L"modify", [&](const std::wstring& tstrRecord) {
        ModifyIniKeyValue(tstrIniPath, tstrRecord);
        Trace(kTraceInfo, L"*** FrameworkDeployAgent::ModifyUpdateInfo(%s) ", tstrRecord.c_str());
    });
    DeployVersion(tstrIniPath);
}

void FrameworkDeployAgent::ModifyIniKeyValue(const std::wstring& tstrIniPath, const std::wstring& tstrData)
{
    const OperationTrace trace(L"FrameworkDeployAgent::ModifyIniKeyValue()", tstrIniPath);
    if (!IsRecordLengthValid(tstrData)) {
        Trace(kTraceError, L"ModifyIniKeyValue(tszData==empty || tszData.size()>1023)");
        return;
    }
    bool bMore = false;
    std::vector<std::wstring> fields = String::SplitFields(tstrData, L'!', eFieldCount, bMore);
    if (bMore) Trace(kTraceError, L"ModifyIniKeyValue() field index>2, too many fields, ignore remaining ones");
    fields.resize(eFieldCount);
    Trace(kTraceInfo, L"[%s] %s=%s", fields[eSection].c_str(), fields[eKey].c_str(), fields[eValue].c_str());
    if (fields[eSection].empty() || fields[eKey].empty() || fields[eValue].empty()) return;
    StoreIniValue(tstrIniPath, fields[eSection], fields[eKey], fields[eValue]);
}

void DeployVersion(const std::wstring& tstrIniPath)
{
    const OperationTrace trace(L"[Enter] DeployVersion(%s)", tstrIniPath, L"[Leve] DeployVersion()");
    StoreIniValue(tstrIniPath, L"COMPONENT_LIST",
                  Process::Is64BitWindows() ? L"Component103_iUD_Version" : L"Component3_iUD_Version",
                  BREVANT_WIDE_VERSION);
}
