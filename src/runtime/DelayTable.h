// The address tables of delayed functions.
#pragma once

#include <windows.h>

/// Loads a Windows library from the system folder, never from the program's; null with the last error on failure. The
/// library stays loaded. LoadLibraryExA.
[[nodiscard]] HMODULE LoadFromSystemFolder(const char* szLibrary) noexcept;

/// Stores the address for later calls of a delayed function. Some linkers put the tables in read-only pages, so the
/// page is made writable meanwhile. If the system refuses that, the entry is unchanged and each call looks its function
/// up again. Thread-safe. VirtualProtect.
void StoreDelayedFunction(FARPROC* pEntry, FARPROC pFunction) noexcept;
