// Small files that are read and replaced as a whole.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace KzCommon::Storage::File {

/// Reads a whole file into `strBytes`; one that others hold is waited for, some two seconds. False with the code in
/// `*pdwError` (may be null): ERROR_BAD_ARGUMENTS (160) for an empty path, ERROR_FILE_TOO_LARGE (223) for more than
/// `cbMost` bytes. CreateFileW, ReadFile.
[[nodiscard]] bool ReadWhole(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes, DWORD* pdwError);

/// Makes `strBytes` the content of an existing file in one step: they are written to a file beside it and flushed, then
/// that one takes its place, with its access rights, attributes and, where it can be given, its owner; a file that
/// others hold is waited for, some two seconds. Whatever happens in between, the old file is there whole. False with
/// the code in `*pdwError` (may be null), nothing changed and nothing left behind: ERROR_FILE_NOT_FOUND (2) when there
/// is no such file, ERROR_ACCESS_DENIED (5) when it is read-only or a folder. WriteFile, SetFileInformationByHandle.
[[nodiscard]] bool ReplaceWhole(const std::wstring& tstrPath, std::string_view strBytes, DWORD* pdwError);

}  // namespace KzCommon::Storage::File
