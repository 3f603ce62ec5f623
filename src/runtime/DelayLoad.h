// System libraries that are loaded at the first call of one of their functions.
#pragma once

#include <windows.h>

/// Loads every delay-loaded system library and resolves its functions, so that no later first call can fail and end the
/// process. False with the name of the missing library or function and the Win32 code; both out-parameters are
/// unchanged on success. LoadLibraryExA, GetProcAddress, VirtualProtect.
[[nodiscard]] bool LoadDelayedLibraries(const char*& szMissing, DWORD& dwError) noexcept;
