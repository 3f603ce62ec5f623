// The registry records of the instruction file.
#pragma once

#include "agent/InstructionFile.h"
#include "agent/RunContext.h"

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

struct SectionKey;

/// What a registry record's type word means.
enum class RegistryType {
    eText,       ///< REG_SZ
    eDword,      ///< REG_DWORD
    eQword,      ///< REG_QDWORD
    eMultiText,  ///< REG_MULTI_SZ: known, and refused
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

/// The type that a word of a record names, eUnknown for any other word.
[[nodiscard]] RegistryType RegistryTypeOf(const std::wstring& tstrWord);

/// Its word; empty for eUnknown.
[[nodiscard]] const wchar_t* WordOf(RegistryType eType);

/// A registry record taken apart: key path, value name and, for all but a deletion, type and data. A field that the
/// record does not have is empty.
struct RegistryRecord {
    std::wstring tstrKeyPath;
    std::wstring tstrValueName;
    std::wstring tstrType;
    std::wstring tstrData;  ///< placeholders as they stand
    RegistryType eType = RegistryType::eUnknown;
    DWORD dwData = 0;         ///< of a REG_DWORD: the data as a number, 0 when it is none
    ULONGLONG ullData = 0;    ///< the same of a REG_QDWORD
    std::size_t cFields = 0;  ///< how many there are, further ones not counted
    bool bTooManyFields = false;
};

/// Takes a record apart; does and traces nothing.
[[nodiscard]] RegistryRecord ParseRegistryRecord(const std::wstring& tstrData);

/// The words of the types that are written.
[[nodiscard]] std::vector<std::wstring> RegistryTypeWords();

/// Whether data are those that stand for a missing value of their type: the operation that adds missing values rewrites
/// a value that holds them.
[[nodiscard]] bool CountsAsMissing(const KzCommon::RegistryData& data);
/// The same of the data that a record writes.
[[nodiscard]] bool CountsAsMissing(const RegistryRecord& record);

/// Whether the operation that adds missing values leaves this one alone: the registry holds one of the record's type,
/// and not what stands for a missing one.
[[nodiscard]] bool IsValueThere(const KzCommon::Machine& machine, const RegistryRecord& record);

/// The data that a record writes; nothing for a type that is not written.
[[nodiscard]] std::optional<KzCommon::RegistryData> DataOf(const RegistryRecord& record);

/// The name under which that operation writes the value: "(Default)" stands for the key's unnamed one.
[[nodiscard]] const std::wstring& NameWrittenIfNone(const RegistryRecord& record);

/// Carries out the registry records: all deletes, then all adds, then all adds of missing values.
void PatchRegistry(const RunContext& run);

/// Carries out one registry record below HKEY_LOCAL_MACHINE; `dwOp` is a RegOp. Traces what becomes of it.
void PatchReg(const RunContext& run, DWORD dwOp, const std::wstring& tstrData);

namespace Records {

/// The operation of the section's keys: one record, by the RegOp of the key's effect.
void ChangeValue(const RunContext& run, const SectionKey& key, const std::wstring& tstrRecord);

}  // namespace Records
