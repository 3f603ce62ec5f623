// The update's instruction file, "QorPaFrwk.ini" in the install folder.
//
// Every section is a list of records, one per line:
//
//     record  = key "=" value
//     value   = 1 to 1023 characters; "!" separates the fields of a registry or INI record, and several "!" in a row
//               count as one, so that no field is empty
//
// Sections.h defines the sections, their keys and the meaning of each value.
//
// A key may occur on many lines. An operation handles its keys in its own order, and the records of one key in line
// order. Key names are case-sensitive.
#pragma once

#include "common/KzComn_Machine.h"

#include <map>
#include <string>

/// The name of the instruction file in the install folder.
inline constexpr wchar_t kInstructionFile[] = L"QorPaFrwk.ini";

/// The longest record value that an operation accepts, in characters.
inline constexpr std::size_t kMaxRecordCharacters = 1023;

/// The reason for refusing a longer value.
inline constexpr wchar_t kRecordTooLong[] = L"longer than 1023 characters";

/// The records of a section: keys in ordinal order, the records of one key in line order.
using SectionRecords = std::multimap<std::wstring, std::wstring>;

/// Reads a section into `records`. True on success, and with no records for a section that exceeds the largest buffer;
/// false when the file is not open. Throws Storage::Exception with the system's code when the section is unreadable or
/// empty, and with ERROR_INVALID_HANDLE (6) when memory runs out.
[[nodiscard]] bool ReadSectionRecords(const KzCommon::Storage::IniFile& iniFile, const std::wstring& tstrSection,
                                      SectionRecords& records);

/// Opens the instruction file in the install folder and reads one section. False with the Win32 code in `dwError` on
/// failure; ERROR_BAD_ARGUMENTS (160) when the install folder is unknown.
[[nodiscard]] bool ReadInstructions(const KzCommon::Machine& machine, const std::wstring& tstrSection,
                                    SectionRecords& records, DWORD& dwError);

/// Calls `apply` with every record of `szKey`, in line order.
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
