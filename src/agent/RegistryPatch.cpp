// The registry records of the instruction file.
#include "agent/QorDeployAgent.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace {

// What a read of a missing value comes back with. A value that really holds one of them counts as missing.
const wchar_t kAbsentText[] = L"!!default_val!REG_SZ!!";
constexpr DWORD kAbsentDword = 0xEB0A1234;
constexpr ULONGLONG kAbsentQword = 0xEB0A1234EB0A1234;

enum Field : std::size_t { eKeyPath, eValueName, eType, eData, eFieldCount };

struct RegistryRecord {
    std::wstring tstrKeyPath;
    std::wstring tstrValueName;
    std::wstring tstrType;
    std::wstring tstrData;  // placeholders expanded
    DWORD dwData = 0;       // the data as a number, 0 when it is none
    ULONGLONG ullData = 0;
};

RegistryRecord ParseRecord(const std::wstring& tstrData, const PathValues& pathValues)
{
    bool bMore = false;
    std::vector<std::wstring> fields = String::SplitFields(tstrData, L'!', eFieldCount, bMore);
    if (bMore) Trace(kTraceError, L"PatchReg() field index>3, too many fields, ignore remaining ones");
    fields.resize(eFieldCount);
    RegistryRecord record{std::move(fields[eKeyPath]), std::move(fields[eValueName]), std::move(fields[eType]),
                          std::move(fields[eData])};
    record.dwData = String::ToDwordStrict(record.tstrData);
    record.ullData = String::ToQwordStrict(record.tstrData);
    pathValues.ExpandPlaceholders(record.tstrData);
    return record;
}

template <class Value>
bool Store(const RegistryRecord& record, const std::wstring& tstrName, const Value& value, DWORD& dwError)
{
    return Storage::Reg::StoreValue(HKEY_LOCAL_MACHINE, record.tstrKeyPath, tstrName, value, Storage::eViewDefault,
                                    &dwError);
}

/// "add": writes the value; `failure` is the type's own text for a failed store.
template <class Value>
void AddValue(const RegistryRecord& record, const Value& value, TraceFormat<DWORD> failure)
{
    DWORD dwError = ERROR_SUCCESS;
    if (!Store(record, record.tstrValueName, value, dwError)) Trace(kTraceError, failure, dwError);
}

void TraceStore(const RegistryRecord& record, const std::wstring& tstrValue)
{
    Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue(%s%s=%s)", record.tstrKeyPath.c_str(),
          record.tstrValueName.c_str(), tstrValue.c_str());
}

void TraceStore(const RegistryRecord& record, ULONGLONG ullValue)
{
    // The text has room for 32 bits: of a longer number it shows the lower half.
    Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue(%s%s=%d)", record.tstrKeyPath.c_str(),
          record.tstrValueName.c_str(), static_cast<int>(ullValue));
}

/// "add_if_non": writes the value unless one of its type is there. A value of another type cannot be read and is
/// rewritten. Only here does "(Default)" stand for the key's unnamed value, and only for the write.
template <class Value>
void AddValueIfNone(const RegistryRecord& record, const Value& value, const Value& absent)
{
    Value existing = absent;
    DWORD dwError = ERROR_SUCCESS;
    const bool bRead = Storage::Reg::ReadValue(HKEY_LOCAL_MACHINE, record.tstrKeyPath, record.tstrValueName, existing,
                                               Storage::eViewDefault, &dwError);
    if (bRead && existing != absent) return;

    TraceStore(record, value);
    const std::wstring tstrName = record.tstrValueName == L"(Default)" ? std::wstring() : record.tstrValueName;
    if (!Store(record, tstrName, value, dwError)) {
        Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=%x", dwError);
    }
}

/// One data type of a registry record: how "add" and "add_if_non" write it.
struct TypeRow {
    const wchar_t* szType;
    void (*pfnAdd)(const RegistryRecord&);
    void (*pfnAddIfNone)(const RegistryRecord&);
};

void RefuseMultiText(const RegistryRecord&)
{
    Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue(). REG_MULTI_SZ not supported yet");
}

const TypeRow kTypes[] = {
    {L"REG_SZ",
     [](const RegistryRecord& record) {
         AddValue(record, record.tstrData, L"KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=%x");
     },
     [](const RegistryRecord& record) {
         AddValueIfNone<std::wstring>(record, record.tstrData, kAbsentText);
     }},
    {L"REG_DWORD",
     [](const RegistryRecord& record) {
         AddValue(record, record.dwData, L"KzCommon::Storage::Reg::StoreValue(REG_DWORD) failed. Win32ErrorCode=%x");
     },
     [](const RegistryRecord& record) {
         AddValueIfNone(record, record.dwData, kAbsentDword);
     }},
    {L"REG_QDWORD",
     [](const RegistryRecord& record) {
         AddValue(record, record.ullData, L"KzCommon::Storage::Reg::StoreValue(REG_QDWORD) failed. Win32ErrorCode=%x");
     },
     [](const RegistryRecord& record) {
         AddValueIfNone(record, record.ullData, kAbsentQword);
     }},
    {L"REG_MULTI_SZ", &RefuseMultiText, &RefuseMultiText},
};

void DeleteRegistryValue(const RegistryRecord& record)
{
    Trace(kTraceInfo, L"To delete registry key: HKEY_LOCAL_MACHINE:%s:%s", record.tstrKeyPath.c_str(),
          record.tstrValueName.c_str());
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::Reg::DeleteValue(HKEY_LOCAL_MACHINE, record.tstrKeyPath, record.tstrValueName, Storage::eViewDefault,
                                   &dwError)) {
        Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=%x", dwError);
    }
}

void WriteRegistryValue(const RegistryRecord& record, DWORD dwOp)
{
    if (dwOp == op_reg_add) {
        Trace(kTraceInfo, L"To write registry key: HKEY_LOCAL_MACHINE:%s:%s:%s", record.tstrKeyPath.c_str(),
              record.tstrValueName.c_str(), record.tstrData.c_str());
    } else {
        Trace(kTraceInfo, L"To check if registry key exists: HKEY_LOCAL_MACHINE:%s:%s:%s", record.tstrKeyPath.c_str(),
              record.tstrValueName.c_str(), record.tstrData.c_str());
    }
    for (const TypeRow& row : kTypes) {
        if (record.tstrType == row.szType) {
            (dwOp == op_reg_add ? row.pfnAdd : row.pfnAddIfNone)(record);
            return;
        }
    }
    Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue(). incorrect data type");
}

}  // namespace

void FrameworkDeployAgent::PatchRegistry()
{
    const OperationTrace trace(L"FrameworkDeployAgent::PatchRegistry()");
    SectionRecords records;
    DWORD dwError = ERROR_SUCCESS;
    if (!ReadInstructions(L"QOR_REGISTRY_PATCH", records, dwError)) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::PatchRegistry() - QueryValue failed. [0x%08x]", dwError);
        return;
    }
    ForEachRecord(records, L"delete", [this](const std::wstring& tstrRecord) {
        PatchReg(op_reg_delete, tstrRecord);
        Trace(kTraceInfo, L"*** FrameworkDeployAgent::PatchRegistry() - delete: [%s]", tstrRecord.c_str());
    });
    const auto add = [this](DWORD dwOp, const std::wstring& tstrRecord) {
        PatchReg(dwOp, tstrRecord);
        Trace(kTraceInfo, L"*** FrameworkDeployAgent::PatchRegistry() - add: [%s]", tstrRecord.c_str());
    };
    ForEachRecord(records, L"add", [&](const std::wstring& tstrRecord) { add(op_reg_add, tstrRecord); });
    ForEachRecord(records, L"add_if_non", [&](const std::wstring& tstrRecord) { add(op_reg_add_if_non, tstrRecord); });
}

void FrameworkDeployAgent::PatchReg(DWORD dwOp, const std::wstring& tstrData)
{
    const OperationTrace trace(L"FrameworkDeployAgent::PatchReg()");
    if (!IsRecordLengthValid(tstrData)) {
        Trace(kTraceError, L"PatchReg(tszData==empty || tszData.size()>1023)");
        return;
    }
    if (dwOp < op_begin_reg || dwOp > op_end_reg) {
        Trace(kTraceError, L"PatchReg(op<op_begin_reg || op>op_end_reg)");
        return;
    }
    const RegistryRecord record = ParseRecord(tstrData, m_pathValues);
    switch (dwOp) {
        case op_reg_delete: DeleteRegistryValue(record); break;
        case op_reg_add:
        case op_reg_add_if_non: WriteRegistryValue(record, dwOp); break;
        default: Trace(kTraceError, L"FrameworkDeployAgent::PatchReg(). incorrect RegOp type"); break;
    }
}
