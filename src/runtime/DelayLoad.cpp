#include "runtime/DelayLoad.h"

#include "runtime/DelayTable.h"

#include "DelayedLibraries.h"

extern "C" const IMAGE_DOS_HEADER __ImageBase;

namespace {

template <class Target>
Target* At(ULONGLONG ullRva) noexcept
{
    return reinterpret_cast<Target*>(reinterpret_cast<ULONG_PTR>(&__ImageBase) + ullRva);
}

/// Loads one library permanently and fills its table; returns the missing name, or null. Skips a library without used
/// functions.
const char* LoadOne(const ImgDelayDescr& library) noexcept
{
    const auto* pName = At<const IMAGE_THUNK_DATA>(library.rvaINT);
    auto* pEntry = At<FARPROC>(library.rvaIAT);
    if (!pName->u1.AddressOfData) return nullptr;
    const auto* szLibrary = At<const char>(library.rvaDLLName);
    const HMODULE hModule = LoadFromSystemFolder(szLibrary);
    if (!hModule) return szLibrary;
    for (; pName->u1.AddressOfData; ++pName, ++pEntry) {
        const char* szFunction = At<const IMAGE_IMPORT_BY_NAME>(pName->u1.AddressOfData)->Name;
        const FARPROC pFunction = ::GetProcAddress(hModule, szFunction);
        if (!pFunction) return szFunction;
        StoreDelayedFunction(pEntry, pFunction);
    }
    return nullptr;
}

}  // namespace

bool LoadDelayedLibraries(const char*& szMissing, DWORD& dwError) noexcept
{
    for (const ImgDelayDescr* pLibrary : kDelayedLibraries) {
        const char* szName = LoadOne(*pLibrary);
        if (!szName) continue;
        dwError = ::GetLastError();
        szMissing = szName;
        return false;
    }
    return true;
}
