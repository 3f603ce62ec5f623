// The tables that calls of delayed functions go through.
#pragma once

#include <windows.h>

/// Loads a library of Windows from the system folder, never from the program's; null with the last error when it is not
/// there. The library stays loaded. LoadLibraryExA.
[[nodiscard]] HMODULE LoadFromSystemFolder(const char* szLibrary) noexcept;

/// Lets the next calls of a delayed function go to this address. Some linkers keep the tables where nothing can be
/// written: the entry's page is writable for as long as this takes. When the system refuses that, the entry stays as it
/// is, and each call looks its function up again. Any thread may call it. VirtualProtect.
void StoreDelayedFunction(FARPROC* pEntry, FARPROC pFunction) noexcept;
