#include "agent/RegistryPatch.h"

#include "agent/Sections.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Registry.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <iterator>

using namespace KzCommon;

namespace {

// What a read of a missing value comes back with. A value that really holds one of them counts as missing.
const wchar_t kAbsentText[] = L"!!default_val!REG_SZ!!";
constexpr DWORD kAbsentDword = 0xEB0A1234;
constexpr ULONGLONG kAbsentQword = 0xEB0A1234EB0A1234;

enum Field : std::size_t { eKeyPath, eValueName, eType, eData, eFieldCount };

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
void AddValueIfNone(const RegistryRecord& record, const Value& value)
{
    if (IsValueThere(record)) return;
    TraceStore(record, value);
    DWORD dwError = ERROR_SUCCESS;
    if (!Store(record, NameWrittenIfNone(record), value, dwError)) {
        Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=%x", dwError);
    }
}

void RefuseMultiText(const RegistryRecord&)
{
    Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue(). REG_MULTI_SZ not supported yet");
}

void RefuseType(const RegistryRecord&)
{
    Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue(). incorrect data type");
}

/// One data type of a registry record: its word, and how "add" and "add_if_non" write it.
struct TypeRow {
    const wchar_t* szType;
    RegistryType eType;
    void (*pfnAdd)(const RegistryRecord&);
    void (*pfnAddIfNone)(const RegistryRecord&);
};

const TypeRow kTypes[] = {
    {L"REG_SZ", RegistryType::eText,
     [](const RegistryRecord& record) {
         AddValue(record, record.tstrData, L"KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=%x");
     },
     [](const RegistryRecord& record) {
         AddValueIfNone(record, record.tstrData);
     }},
    {L"REG_DWORD", RegistryType::eDword,
     [](const RegistryRecord& record) {
         AddValue(record, record.dwData, L"KzCommon::Storage::Reg::StoreValue(REG_DWORD) failed. Win32ErrorCode=%x");
     },
     [](const RegistryRecord& record) {
         AddValueIfNone(record, record.dwData);
     }},
    {L"REG_QDWORD", RegistryType::eQword,
     [](const RegistryRecord& record) {
         AddValue(record, record.ullData, L"KzCommon::Storage::Reg::StoreValue(REG_QDWORD) failed. Win32ErrorCode=%x");
     },
     [](const RegistryRecord& record) {
         AddValueIfNone(record, record.ullData);
     }},
    {L"REG_MULTI_SZ", RegistryType::eMultiText, &RefuseMultiText, &RefuseMultiText},
};
const TypeRow kAnyOtherType{L"", RegistryType::eUnknown, &RefuseType, &RefuseType};

const TypeRow& TypeOf(const std::wstring& tstrType)
{
    const auto* const pRow = std::ranges::find(kTypes, tstrType, &TypeRow::szType);
    return pRow == std::end(kTypes) ? kAnyOtherType : *pRow;
}

void DeleteValue(const RegistryRecord& record)
{
    Trace(kTraceInfo, L"To delete registry key: HKEY_LOCAL_MACHINE:%s:%s", record.tstrKeyPath.c_str(),
          record.tstrValueName.c_str());
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::Reg::DeleteValue(HKEY_LOCAL_MACHINE, record.tstrKeyPath, record.tstrValueName, Storage::eViewDefault,
                                   &dwError)) {
        Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=%x", dwError);
    }
}

void WriteValue(const RegistryRecord& record, DWORD dwOp)
{
    if (dwOp == op_reg_add) {
        Trace(kTraceInfo, L"To write registry key: HKEY_LOCAL_MACHINE:%s:%s:%s", record.tstrKeyPath.c_str(),
              record.tstrValueName.c_str(), record.tstrData.c_str());
    } else {
        Trace(kTraceInfo, L"To check if registry key exists: HKEY_LOCAL_MACHINE:%s:%s:%s", record.tstrKeyPath.c_str(),
              record.tstrValueName.c_str(), record.tstrData.c_str());
    }
    const TypeRow& row = TypeOf(record.tstrType);
    (dwOp == op_reg_add ? row.pfnAdd : row.pfnAddIfNone)(record);
}

void AddAndTrace(const PathValues& pathValues, DWORD dwOp, const std::wstring& tstrRecord)
{
    PatchReg(pathValues, dwOp, tstrRecord);
    Trace(kTraceInfo, L"*** FrameworkDeployAgent::PatchRegistry() - add: [%s]", tstrRecord.c_str());
}

}  // namespace

RegistryType RegistryTypeOf(const std::wstring& tstrWord)
{
    return TypeOf(tstrWord).eType;
}

const wchar_t* WordOf(RegistryType eType)
{
    const auto* const pRow = std::ranges::find(kTypes, eType, &TypeRow::eType);
    return pRow == std::end(kTypes) ? kAnyOtherType.szType : pRow->szType;
}

RegistryRecord ParseRegistryRecord(const std::wstring& tstrData)
{
    RegistryRecord record;
    std::vector<std::wstring> fields = String::SplitFields(tstrData, L'!', eFieldCount, record.bTooManyFields);
    record.cFields = fields.size();
    fields.resize(eFieldCount);
    record.tstrKeyPath = std::move(fields[eKeyPath]);
    record.tstrValueName = std::move(fields[eValueName]);
    record.tstrType = std::move(fields[eType]);
    record.tstrData = std::move(fields[eData]);
    record.eType = RegistryTypeOf(record.tstrType);
    switch (record.eType) {
        case RegistryType::eDword: record.dwData = String::ToDwordStrict(record.tstrData); break;
        case RegistryType::eQword: record.ullData = String::ToQwordStrict(record.tstrData); break;
        case RegistryType::eText:
        case RegistryType::eMultiText:
        case RegistryType::eUnknown: break;
    }
    return record;
}

std::vector<std::wstring> RegistryTypeWords()
{
    std::vector<std::wstring> words;
    for (const TypeRow& row : kTypes) {
        if (IsWritten(row.eType)) words.emplace_back(row.szType);
    }
    return words;
}

bool CountsAsMissing(const RegistryRecord& record)
{
    switch (record.eType) {
        case RegistryType::eText: return record.tstrData == kAbsentText;
        case RegistryType::eDword: return record.dwData == kAbsentDword;
        case RegistryType::eQword: return record.ullData == kAbsentQword;
        case RegistryType::eMultiText:
        case RegistryType::eUnknown: break;
    }
    return false;
}

bool IsValueThere(const RegistryRecord& record)
{
    RegistryRecord held = record;
    const auto read = [&](auto& value) {
        return Storage::Reg::ReadValue(HKEY_LOCAL_MACHINE, record.tstrKeyPath, record.tstrValueName, value,
                                       Storage::eViewDefault, nullptr) &&
               !CountsAsMissing(held);
    };
    switch (record.eType) {
        case RegistryType::eText: return read(held.tstrData);
        case RegistryType::eDword: return read(held.dwData);
        case RegistryType::eQword: return read(held.ullData);
        case RegistryType::eMultiText:
        case RegistryType::eUnknown: break;
    }
    return false;
}

const std::wstring& NameWrittenIfNone(const RegistryRecord& record)
{
    static const std::wstring kUnnamed;
    return record.tstrValueName == L"(Default)" ? kUnnamed : record.tstrValueName;
}

void PatchRegistry(const PathValues& pathValues)
{
    const OperationTrace trace(L"FrameworkDeployAgent::PatchRegistry()");
    constexpr const Section& kSection = SectionOf(L"QOR_REGISTRY_PATCH", L"PatchRegistry");
    SectionRecords records;
    if (ReadSection(kSection, records)) CarryOutRecords(kSection, records, pathValues);
}

void Records::DeleteRegistryValue(const PathValues& pathValues, const std::wstring& tstrRecord)
{
    PatchReg(pathValues, op_reg_delete, tstrRecord);
    Trace(kTraceInfo, L"*** FrameworkDeployAgent::PatchRegistry() - delete: [%s]", tstrRecord.c_str());
}

void Records::AddRegistryValue(const PathValues& pathValues, const std::wstring& tstrRecord)
{
    AddAndTrace(pathValues, op_reg_add, tstrRecord);
}

void Records::AddMissingRegistryValue(const PathValues& pathValues, const std::wstring& tstrRecord)
{
    AddAndTrace(pathValues, op_reg_add_if_non, tstrRecord);
}

void PatchReg(const PathValues& pathValues, DWORD dwOp, const std::wstring& tstrData)
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
    RegistryRecord record = ParseRegistryRecord(tstrData);
    if (record.bTooManyFields) {
        Trace(kTraceError, L"PatchReg() field index>3, too many fields, ignore remaining ones");
    }
    pathValues.ExpandPlaceholders(record.tstrData);
    switch (dwOp) {
        case op_reg_delete: DeleteValue(record); break;
        case op_reg_add:
        case op_reg_add_if_non: WriteValue(record, dwOp); break;
        default: Trace(kTraceError, L"FrameworkDeployAgent::PatchReg(). incorrect RegOp type"); break;
    }
}
