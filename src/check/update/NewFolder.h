// Writes the folder of a new update.
#pragma once

#include "check/update/CommandLine.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace Check {

/// Whether the folder, as the user wrote it, is missing or empty. Adds an error line when it is not.
[[nodiscard]] bool IsFreeFolder(const std::wstring& tstrGiven, Output& output);

/// Creates a folder and those above it, given as a full path. Refuses a path with a link like the agent, but not on the
/// host's drive: there every mounted volume looks like a link. False with the Win32 code. CreateDirectoryW.
[[nodiscard]] bool MakeFolder(const std::wstring& tstrFolder, DWORD* pdwError);

/// Writes a file and creates the folders above it. False with the Win32 code. CreateFileW, MoveFileExW.
[[nodiscard]] bool WriteNewFile(const std::wstring& tstrPath, std::string_view strBytes, DWORD* pdwError);

/// Copies a file with its attributes and creates the folders above it. False with the Win32 code. CopyFileW.
[[nodiscard]] bool CopyNewFile(const std::wstring& tstrPath, const std::wstring& tstrSource, DWORD* pdwError);

/// A text in UTF-16 with its BOM.
[[nodiscard]] std::string ToUtf16File(const std::wstring& tstrText);

}  // namespace Check
