// System libraries that are loaded when the first of their functions is called.
#pragma once

#include <windows.h>

/// Loads every system library of which this program delays a function, and fills in each of those functions: after
/// that no first call can fail, which would end the process where it stands. False with the name of what is missing,
/// a library's or a function's, and the Win32 code; both out-parameters are untouched on success. LoadLibraryExA,
/// GetProcAddress, VirtualProtect.
[[nodiscard]] bool LoadDelayedLibraries(const char*& szMissing, DWORD& dwError) noexcept;
