// Reads and replaces small files as a whole.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace KzCommon::Storage::File {

/// Reads a whole file into `strBytes`; waits about two seconds while it is in use. False with the code in `*pdwError`
/// (may be null): ERROR_BAD_ARGUMENTS (160) for an empty path, ERROR_FILE_TOO_LARGE (223) for more than `cbMost` bytes.
/// CreateFileW, ReadFile.
[[nodiscard]] bool ReadWhole(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes, DWORD* pdwError);

/// Replaces the content of an existing file with `strBytes` in one step: writes and flushes a file beside it, which
/// then takes its place with its access rights, attributes and, where possible, its owner. Waits about two seconds
/// while the file is in use. The file is complete at every moment. False with the code in `*pdwError` (may be null),
/// nothing changed and no files left: ERROR_FILE_NOT_FOUND (2) when the file does not exist, ERROR_ACCESS_DENIED (5)
/// when it is read-only or a folder. WriteFile, SetFileInformationByHandle.
[[nodiscard]] bool ReplaceWhole(const std::wstring& tstrPath, std::string_view strBytes, DWORD* pdwError);

}  // namespace KzCommon::Storage::File
