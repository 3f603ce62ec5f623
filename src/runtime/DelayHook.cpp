// Where the libraries of delayed imports (cmake/SystemImports.cmake) come from: the system folder and nowhere else,
// least of all the folder of the program.
#include <windows.h>

#include <delayimp.h>

namespace {

/// Called by the toolchain's helper at each of its steps; null leaves the step to the helper, whose own search would
/// begin beside the program. A library that is not in the system folder must not be found there either.
FARPROC WINAPI LoadFromSystemFolder(unsigned uStep, PDelayLoadInfo pInfo)
{
    if (uStep != dliNotePreLoadLibrary) return nullptr;
    const HMODULE hModule = ::LoadLibraryExA(pInfo->szDll, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (hModule) return reinterpret_cast<FARPROC>(hModule);
    const auto dwCode = static_cast<DWORD>(VcppException(ERROR_SEVERITY_ERROR, ERROR_MOD_NOT_FOUND));
    ::RaiseException(dwCode, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    return nullptr;
}

}  // namespace

extern "C" {
PfnDliHook __pfnDliNotifyHook2 = &LoadFromSystemFolder;
}
