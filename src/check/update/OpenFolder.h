// Folders that standard users can write to.
#pragma once

#include <windows.h>

#include <optional>
#include <string>

namespace Check {

/// Whether the access list of a folder lets one of the groups of all users change what is in it. Empty with the code
/// when it cannot be read. Does not look at rights of single users. GetKernelObjectSecurity.
[[nodiscard]] std::optional<bool> IsOpenToUsers(const std::wstring& tstrFolder, DWORD* pdwError);

}  // namespace Check
