#include "runtime/DelayLoad.h"

#include "DelayedLibraries.h"

extern "C" const IMAGE_DOS_HEADER __ImageBase;

namespace {

template <class Target>
const Target* At(ULONGLONG ullRva) noexcept
{
    return reinterpret_cast<const Target*>(reinterpret_cast<ULONG_PTR>(&__ImageBase) + ullRva);
}

/// Loads one library for good; the name of what is missing, or null. A library of which nothing is used stays out.
const char* LoadOne(const ImgDelayDescr& library) noexcept
{
    const auto* pFunction = At<IMAGE_THUNK_DATA>(library.rvaINT);
    if (!pFunction->u1.AddressOfData) return nullptr;
    const char* szLibrary = At<char>(library.rvaDLLName);
    const HMODULE hModule = ::LoadLibraryExA(szLibrary, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (!hModule) return szLibrary;
    for (; pFunction->u1.AddressOfData; ++pFunction) {
        const char* szFunction = At<IMAGE_IMPORT_BY_NAME>(pFunction->u1.AddressOfData)->Name;
        if (!::GetProcAddress(hModule, szFunction)) return szFunction;
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
