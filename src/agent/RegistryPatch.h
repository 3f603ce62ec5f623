// The registry records of the instruction file.
#pragma once

#include "agent/InstructionFile.h"
#include "agent/RunContext.h"

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

struct SectionKey;

/// Registry operations; other numbers are refused.
enum RegOp : DWORD {
    op_no_reg = 0,            ///< no operation
    op_reg_add = 100,         ///< write the value, even if it exists
    op_reg_add_if_non = 101,  ///< write the value only when it does not exist
    op_reg_delete = 102,      ///< delete the value
    op_begin_reg = op_reg_add,
    op_end_reg = op_reg_delete
};

/// The types of a registry record.
enum class RegistryType {
    eText,       ///< REG_SZ
    eDword,      ///< REG_DWORD
    eQword,      ///< REG_QDWORD
    eMultiText,  ///< REG_MULTI_SZ: known but refused
    eUnknown
};

/// Whether values of the type are written.
constexpr bool IsWritten(RegistryType eType) noexcept
{
    switch (eType) {
        case RegistryType::eText:
        case RegistryType::eDword:
        case RegistryType::eQword: return true;
        case RegistryType::eMultiText:
        case RegistryType::eUnknown: break;
    }
    return false;
}

/// The type for a word of a record; eUnknown for an unknown word.
[[nodiscard]] RegistryType RegistryTypeOf(const std::wstring& tstrWord);

/// The word for a type; empty for eUnknown.
[[nodiscard]] const wchar_t* WordOf(RegistryType eType);

/// A parsed registry record: key path and value name and, except for a deletion, type and data. Missing fields are
/// empty.
struct RegistryRecord {
    std::wstring tstrKeyPath;
    std::wstring tstrValueName;
    std::wstring tstrType;
    std::wstring tstrData;  ///< with placeholders not expanded
    RegistryType eType = RegistryType::eUnknown;
    DWORD dwData = 0;         ///< of a REG_DWORD: the data as a number, 0 when invalid
    ULONGLONG ullData = 0;    ///< likewise of a REG_QDWORD
    std::size_t cFields = 0;  ///< the number of fields, not counting excess ones
    bool bTooManyFields = false;
};

/// Parses a record; changes and traces nothing.
[[nodiscard]] RegistryRecord ParseRegistryRecord(const std::wstring& tstrData);

/// The words of the types that are written.
[[nodiscard]] std::vector<std::wstring> RegistryTypeWords();

/// Whether data equals the default for a missing value of its type. "add_if_non" overwrites such a value.
[[nodiscard]] bool CountsAsMissing(const KzCommon::RegistryData& data);
/// Likewise for the data that a record writes.
[[nodiscard]] bool CountsAsMissing(const RegistryRecord& record);

/// Whether "add_if_non" leaves the value unchanged: the registry has one of the record's type that does not count as
/// missing.
[[nodiscard]] bool IsValueThere(const KzCommon::Machine& machine, const RegistryRecord& record);

/// The data that a record writes; empty for a type that is not written.
[[nodiscard]] std::optional<KzCommon::RegistryData> DataOf(const RegistryRecord& record);

/// The name under which "add_if_non" writes the value: "(Default)" becomes the key's unnamed value.
[[nodiscard]] const std::wstring& NameWrittenIfNone(const RegistryRecord& record);

/// Carries out the registry records: first all deletes, then all adds, then all adds of missing values.
void PatchRegistry(const RunContext& run);

/// Carries out one registry record below HKEY_LOCAL_MACHINE and traces the result; `dwOp` is a RegOp.
void PatchReg(const RunContext& run, DWORD dwOp, const std::wstring& tstrData);

namespace Records {

/// Carries out one record of the section with the RegOp of the key's effect.
void ChangeValue(const RunContext& run, const SectionKey& key, const std::wstring& tstrRecord);

}  // namespace Records
