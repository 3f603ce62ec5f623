// Resolves a call of a delayed function (cmake/SystemImports.cmake) before its table contains the address.
#include "runtime/DelayTable.h"

#include <delayimp.h>

namespace {

// Two threads may change the same page: neither may restore its protection while the other one writes.
SRWLOCK g_tables{};

[[noreturn]] void EndWithoutFunction(DWORD dwError)
{
    ::RaiseException(static_cast<DWORD>(VcppException(ERROR_SEVERITY_ERROR, dwError)), EXCEPTION_NONCONTINUABLE, 0,
                     nullptr);
    __builtin_unreachable();
}

/// The toolchain's helper calls this at each of its steps. The first call does all the work: the helper's own search
/// would start beside the program, and it would write to the table without checking the page's protection.
FARPROC WINAPI FindFunction(unsigned uStep, PDelayLoadInfo pInfo)
{
    if (uStep != dliStartProcessing) return nullptr;
    const HMODULE hModule = LoadFromSystemFolder(pInfo->szDll);
    if (!hModule) EndWithoutFunction(ERROR_MOD_NOT_FOUND);
    const FARPROC pFunction = ::GetProcAddress(hModule, pInfo->dlp.szProcName);
    if (!pFunction) EndWithoutFunction(ERROR_PROC_NOT_FOUND);
    StoreDelayedFunction(pInfo->ppfn, pFunction);
    return pFunction;
}

}  // namespace

extern "C" {
PfnDliHook __pfnDliNotifyHook2 = &FindFunction;
}

HMODULE LoadFromSystemFolder(const char* szLibrary) noexcept
{
    return ::LoadLibraryExA(szLibrary, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
}

void StoreDelayedFunction(FARPROC* pEntry, FARPROC pFunction) noexcept
{
    DWORD dwProtection = 0;
    ::AcquireSRWLockExclusive(&g_tables);
    if (::VirtualProtect(pEntry, sizeof(*pEntry), PAGE_READWRITE, &dwProtection)) {
        *pEntry = pFunction;
        ::VirtualProtect(pEntry, sizeof(*pEntry), dwProtection, &dwProtection);
    }
    ::ReleaseSRWLockExclusive(&g_tables);
}
