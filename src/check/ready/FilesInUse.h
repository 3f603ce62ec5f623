// Files that another program has open.
#pragma once

#include <windows.h>

#include <string>

namespace Check {

/// Whether a file can be read and replaced now. False with the code: ERROR_SHARING_VIOLATION (32) or
/// ERROR_LOCK_VIOLATION (33) for a file in use, ERROR_ACCESS_DENIED (5) without the rights. A missing file is free.
/// CreateFileW.
[[nodiscard]] bool IsFree(const std::wstring& tstrFile, DWORD& dwError);

/// The names of the programs that have a file open, each once, with commas; empty when Windows does not tell.
/// RmGetList.
[[nodiscard]] std::wstring UsersOf(const std::wstring& tstrFile);

}  // namespace Check
