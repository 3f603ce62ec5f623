#include "agent/RegistryPatch.h"

#include "agent/Sections.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <iterator>

using namespace KzCommon;

namespace {

// The results of reading a missing value. A value with one of these as its real data counts as missing.
const std::wstring kAbsentText = L"!!default_val!REG_SZ!!";
constexpr DWORD kAbsentDword = 0xEB0A1234;
constexpr ULONGLONG kAbsentQword = 0xEB0A1234EB0A1234;

enum Field : std::size_t { eKeyPath, eValueName, eType, eData, eFieldCount };

RegistryPlace PlaceOf(const RegistryRecord& record, const std::wstring& tstrName)
{
    return {.tstrKeyPath = record.tstrKeyPath, .tstrName = tstrName};
}

/// A remark on a record that is carried out, or an empty text.
std::wstring RemarkOn(const RegistryRecord& record)
{
    const bool bNumber = record.eType == RegistryType::eDword || record.eType == RegistryType::eQword;
    const ULONGLONG ullNumber = record.eType == RegistryType::eDword ? record.dwData : record.ullData;
    if (bNumber && record.tstrData != std::to_wstring(ullNumber)) {
        return L"\"" + record.tstrData + L"\" is not a decimal number of that size";
    }
    return record.bTooManyFields ? L"text after the fourth field is ignored" : L"";
}

/// "add": writes the value; `failure` is the type's trace text for a failed write.
void AddValue(Machine& machine, const RegistryRecord& record, const RegistryData& data, TraceFormat<DWORD> failure)
{
    machine.Explain(RemarkOn(record));
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.StoreValue(PlaceOf(record, record.tstrValueName), data, &dwError)) {
        Trace(kTraceError, failure, dwError);
    }
}

void TraceStore(const RegistryRecord& record)
{
    if (record.eType == RegistryType::eText) {
        Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue(%s%s=%s)", record.tstrKeyPath.c_str(),
              record.tstrValueName.c_str(), record.tstrData.c_str());
        return;
    }
    // The text has room for 32 bits, so it shows the lower half of a longer number.
    const ULONGLONG ullNumber = record.eType == RegistryType::eDword ? record.dwData : record.ullData;
    Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue(%s%s=%d)", record.tstrKeyPath.c_str(),
          record.tstrValueName.c_str(), static_cast<int>(ullNumber));
}

/// Reports a record that writes nothing.
void ReportUnwritten(Machine& machine, const RegistryRecord& record, Outcome eOutcome, const std::wstring& tstrReason)
{
    Change change{.eAction = Action::eWriteValue, .eOutcome = eOutcome};
    change.tstrTarget = L"HKEY_LOCAL_MACHINE\\" + record.tstrKeyPath;
    change.tstrName = record.tstrValueName;
    change.tstrReason = tstrReason;
    machine.Report(change);
}

/// "add_if_non": writes the value unless one of the same type exists. A value of another type cannot be read and is
/// overwritten. Only here "(Default)" means the key's unnamed value, and only for writing.
void AddValueIfNone(Machine& machine, const RegistryRecord& record, const RegistryData& data)
{
    if (IsValueThere(machine, record)) {
        ReportUnwritten(machine, record, Outcome::eStay, L"it already exists");
        return;
    }
    TraceStore(record);
    machine.Explain(RemarkOn(record));
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.StoreValue(PlaceOf(record, NameWrittenIfNone(record)), data, &dwError)) {
        Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=%x", dwError);
    }
}

/// One data type of a registry record: its word, and the trace line for a failed "add".
struct TypeRow {
    const wchar_t* szType;
    RegistryType eType;
    TraceFormat<DWORD> failure;
};

constexpr TypeRow kTypes[] = {
    {L"REG_SZ", RegistryType::eText, L"KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=%x"},
    {L"REG_DWORD", RegistryType::eDword, L"KzCommon::Storage::Reg::StoreValue(REG_DWORD) failed. Win32ErrorCode=%x"},
    {L"REG_QDWORD", RegistryType::eQword, L"KzCommon::Storage::Reg::StoreValue(REG_QDWORD) failed. Win32ErrorCode=%x"},
    {L"REG_MULTI_SZ", RegistryType::eMultiText, nullptr},
};
constexpr TypeRow kAnyOtherType{L"", RegistryType::eUnknown, nullptr};

const TypeRow& TypeOf(const std::wstring& tstrType)
{
    const auto* const pRow = std::ranges::find(kTypes, tstrType, &TypeRow::szType);
    return pRow == std::end(kTypes) ? kAnyOtherType : *pRow;
}

void RefuseType(Machine& machine, const RegistryRecord& record)
{
    if (record.eType == RegistryType::eMultiText) {
        Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue(). REG_MULTI_SZ not supported yet");
        ReportUnwritten(machine, record, Outcome::eFail, L"REG_MULTI_SZ is not supported");
        return;
    }
    Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue(). incorrect data type");
    ReportUnwritten(machine, record, Outcome::eFail,
                    record.tstrType.empty() ? L"the record has no type" : L"there is no type " + record.tstrType);
}

void DeleteValue(Machine& machine, const RegistryRecord& record)
{
    Trace(kTraceInfo, L"To delete registry key: HKEY_LOCAL_MACHINE:%s:%s", record.tstrKeyPath.c_str(),
          record.tstrValueName.c_str());
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.DeleteValue(PlaceOf(record, record.tstrValueName), &dwError)) {
        Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue() failed. Win32ErrorCode=%x", dwError);
    }
}

void WriteValue(Machine& machine, const RegistryRecord& record, DWORD dwOp)
{
    if (dwOp == op_reg_add) {
        Trace(kTraceInfo, L"To write registry key: HKEY_LOCAL_MACHINE:%s:%s:%s", record.tstrKeyPath.c_str(),
              record.tstrValueName.c_str(), record.tstrData.c_str());
    } else {
        Trace(kTraceInfo, L"To check if registry key exists: HKEY_LOCAL_MACHINE:%s:%s:%s", record.tstrKeyPath.c_str(),
              record.tstrValueName.c_str(), record.tstrData.c_str());
    }
    const std::optional<RegistryData> optData = DataOf(record);
    if (!optData) return RefuseType(machine, record);
    if (dwOp == op_reg_add_if_non) return AddValueIfNone(machine, record, *optData);
    AddValue(machine, record, *optData, TypeOf(record.tstrType).failure);
}

/// Reports a record that is too long.
void ReportTooLong(Machine& machine, RegOp eOp, const std::wstring& tstrRecord)
{
    if (IsRecordLengthValid(tstrRecord)) return;
    Change change{.eAction = eOp == op_reg_delete ? Action::eDeleteValue : Action::eWriteValue,
                  .eOutcome = Outcome::eFail};
    change.tstrTarget = tstrRecord;
    change.tstrReason = kRecordTooLong;
    machine.Report(change);
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

bool CountsAsMissing(const RegistryData& data)
{
    static const RegistryData kAbsent[] = {kAbsentText, kAbsentDword, kAbsentQword};
    static_assert(std::size(kAbsent) == std::variant_size_v<RegistryData>);
    return kAbsent[data.index()] == data;
}

std::optional<RegistryData> DataOf(const RegistryRecord& record)
{
    switch (record.eType) {
        case RegistryType::eText: return record.tstrData;
        case RegistryType::eDword: return record.dwData;
        case RegistryType::eQword: return record.ullData;
        case RegistryType::eMultiText:
        case RegistryType::eUnknown: break;
    }
    return std::nullopt;
}

bool CountsAsMissing(const RegistryRecord& record)
{
    const std::optional<RegistryData> optData = DataOf(record);
    return optData && CountsAsMissing(*optData);
}

bool IsValueThere(const Machine& machine, const RegistryRecord& record)
{
    std::optional<RegistryData> optHeld = DataOf(record);
    return optHeld && machine.ReadValue(PlaceOf(record, record.tstrValueName), *optHeld, nullptr) &&
           !CountsAsMissing(*optHeld);
}

const std::wstring& NameWrittenIfNone(const RegistryRecord& record)
{
    static const std::wstring kUnnamed;
    return record.tstrValueName == L"(Default)" ? kUnnamed : record.tstrValueName;
}

void PatchRegistry(const RunContext& run)
{
    const OperationTrace trace(L"FrameworkDeployAgent::PatchRegistry()");
    run.machine.BeginOperation(L"PatchRegistry");
    constexpr const Section& kSection = SectionOf(L"QOR_REGISTRY_PATCH", L"PatchRegistry");
    SectionRecords records;
    if (ReadSection(run.machine, kSection, records)) CarryOutRecords(run, kSection, records);
}

void Records::ChangeValue(const RunContext& run, const SectionKey& key, const std::wstring& tstrRecord)
{
    ReportTooLong(run.machine, RegOpOf(key.eEffect), tstrRecord);
    PatchReg(run, RegOpOf(key.eEffect), tstrRecord);
    TraceRecord(key, tstrRecord);
}

void PatchReg(const RunContext& run, DWORD dwOp, const std::wstring& tstrData)
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
    run.paths.ExpandPlaceholders(record.tstrData);
    switch (dwOp) {
        case op_reg_delete: DeleteValue(run.machine, record); break;
        case op_reg_add:
        case op_reg_add_if_non: WriteValue(run.machine, record, dwOp); break;
        default: Trace(kTraceError, L"FrameworkDeployAgent::PatchReg(). incorrect RegOp type"); break;
    }
}
