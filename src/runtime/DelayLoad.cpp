// Loads a system library when the first of its functions is called, so that a run pays only for what it uses.
//
// The linker's stubs for delayed imports (cmake/SystemImports.cmake) call this with their descriptor. A library is
// taken from the system folder and from nowhere else, least of all from the folder of the program.
#include <windows.h>

#include <delayimp.h>

extern "C" const IMAGE_DOS_HEADER __ImageBase;

namespace {

template <class Target>
Target* At(RVA uRva) noexcept
{
    const auto uBase = reinterpret_cast<ULONG_PTR>(&__ImageBase);
    return reinterpret_cast<Target*>(uBase + uRva);
}

[[noreturn]] void Fail(DWORD dwError, const char* szName) noexcept
{
    const ULONG_PTR arguments[] = {reinterpret_cast<ULONG_PTR>(szName)};
    for (;;) {
        ::RaiseException(static_cast<DWORD>(VcppException(ERROR_SEVERITY_ERROR, dwError)), EXCEPTION_NONCONTINUABLE, 1,
                         arguments);
    }
}

/// Linkers differ in whether the slots can be written.
void Fill(FARPROC* ppfnSlot, FARPROC pfn) noexcept
{
    static SRWLOCK s_lock{};
    ::AcquireSRWLockExclusive(&s_lock);
    DWORD dwProtection = 0;
    if (!::VirtualProtect(ppfnSlot, sizeof(FARPROC), PAGE_READWRITE, &dwProtection)) Fail(::GetLastError(), "");
    *ppfnSlot = pfn;
    ::VirtualProtect(ppfnSlot, sizeof(FARPROC), dwProtection, &dwProtection);
    ::ReleaseSRWLockExclusive(&s_lock);
}

}  // namespace

/// Resolves the import whose slot is `ppfnSlot` and fills the slot; the stub then goes on to the result. A library or a
/// function that this Windows lacks ends the program, as it would have at its start. LoadLibraryExA, GetProcAddress.
extern "C" FARPROC WINAPI __delayLoadHelper2(PCImgDelayDescr pDescriptor, FARPROC* ppfnSlot)
{
    const DWORD dwLastError = ::GetLastError();  // the call that comes here may leave it alone
    const char* szLibrary = At<const char>(pDescriptor->rvaDLLName);
    // Loaded for good. Two threads that come here at once load it twice, which Windows counts.
    const HMODULE hModule = ::LoadLibraryExA(szLibrary, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (!hModule) Fail(ERROR_MOD_NOT_FOUND, szLibrary);

    const auto uIndex = ppfnSlot - At<FARPROC>(pDescriptor->rvaIAT);
    const ULONGLONG ullName = At<const IMAGE_THUNK_DATA>(pDescriptor->rvaINT)[uIndex].u1.AddressOfData;
    const char* szFunction = At<const IMAGE_IMPORT_BY_NAME>(static_cast<RVA>(ullName))->Name;
    const FARPROC pfn = ::GetProcAddress(hModule, szFunction);
    if (!pfn) Fail(ERROR_PROC_NOT_FOUND, szFunction);
    Fill(ppfnSlot, pfn);
    ::SetLastError(dwLastError);
    return pfn;
}
