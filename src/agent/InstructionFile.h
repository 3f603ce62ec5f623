// The update's instruction file, "QorPaFrwk.ini" in the install folder.
//
// Every section is a list of records, one a line:
//
//     record  = key "=" value
//     value   = 1 to 1023 characters; the fields of a registry or INI record stand between "!", and a run of "!"
//               counts as one, so that no field is empty
//
// Sections.h has the sections and keys, and what the value of each is.
//
// The same key may stand on many lines. An operation takes its keys in an order of its own, and the records of one key
// in the order of their lines. Keys match exactly.
#pragma once

#include "common/KzComn_Machine.h"

#include <map>
#include <string>

/// Its name, in the install folder.
inline constexpr wchar_t kInstructionFile[] = L"QorPaFrwk.ini";

/// Registry operations; any other number is refused.
enum RegOp : DWORD {
    op_no_reg = 0,            ///< no operation
    op_reg_add = 100,         ///< write the value, whatever is there
    op_reg_add_if_non = 101,  ///< write the value only when it does not exist
    op_reg_delete = 102,      ///< delete the value
    op_begin_reg = op_reg_add,
    op_end_reg = op_reg_delete
};

/// File operations; any other number is refused.
enum FileOp : int {
    op_dir_delete = 0,       ///< delete a folder with its contents at the next restart
    op_dir_add = 1,          ///< create a folder now
    op_not_used = 2,         ///< does nothing
    op_file_delete = 3,      ///< delete the matching files at the next restart
    op_file_delete_now = 4,  ///< delete the matching files now
    op_begin_file = op_dir_delete,
    op_end_file = op_file_delete_now
};

/// The longest record value that an operation accepts, in characters.
inline constexpr std::size_t kMaxRecordCharacters = 1023;

/// Why a longer one is refused.
inline constexpr wchar_t kRecordTooLong[] = L"longer than 1023 characters";

/// A section's records: keys in plain ordinal order, the records of one key in the order of their lines.
using SectionRecords = std::multimap<std::wstring, std::wstring>;

/// Fills `records` with a section. True when done, also (with nothing read) for a section too long for the largest
/// buffer; false when the file is not open. Throws Storage::Exception with the system's code when the section cannot be
/// read or is empty, with ERROR_INVALID_HANDLE (6) when memory is out.
[[nodiscard]] bool ReadSectionRecords(const KzCommon::Storage::IniFile& iniFile, const std::wstring& tstrSection,
                                      SectionRecords& records);

/// Opens the instruction file in the install folder and reads one section of it. False with the Win32 code in `dwError`
/// when that fails; ERROR_BAD_ARGUMENTS (160) when no install folder is known.
[[nodiscard]] bool ReadInstructions(const KzCommon::Machine& machine, const std::wstring& tstrSection,
                                    SectionRecords& records, DWORD& dwError);

/// Calls `apply` with every record of `szKey`, in the order of their lines.
template <class Apply>
void ForEachRecord(const SectionRecords& records, const wchar_t* szKey, Apply&& apply)
{
    const auto [itFirst, itLast] = records.equal_range(szKey);
    for (auto itRecord = itFirst; itRecord != itLast; ++itRecord) apply(itRecord->second);
}

/// Whether an operation accepts a record value of this length.
[[nodiscard]] inline bool IsRecordLengthValid(const std::wstring& tstrData) noexcept
{
    return !tstrData.empty() && tstrData.size() <= kMaxRecordCharacters;
}
