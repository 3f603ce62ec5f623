// Libraries that are loaded at run time.
#pragma once

#include "common/KzComn_Handle.h"
#include "common/KzDbg.h"

#include <string>

namespace KzCommon::Library {

/// Owner of a module loaded at run time; the destructor frees it.
class Wrapper {
public:
    Wrapper() noexcept = default;
    Wrapper(const Wrapper&) = delete;
    Wrapper& operator=(const Wrapper&) = delete;
    virtual ~Wrapper() = default;

    /// Loads a library by path. A relative path starts at the program's folder, never at the current folder, where a
    /// malicious library could be. The library's own dependencies are searched only beside it and in the system folder.
    /// False with the code in `*pdwError` (may be null). LoadLibraryExW.
    [[nodiscard]] bool Load(const std::wstring& tstrPath, DWORD* pdwError = nullptr);
    /// Loads a Windows library by its bare name, from the system folder only. LoadLibraryExW.
    [[nodiscard]] bool LoadSystem(const wchar_t* szName, DWORD* pdwError = nullptr);
    /// FreeLibrary.
    virtual void Free() noexcept;
    /// Keeps the library loaded for good: after a fault inside it, not even freeing it is safe.
    void Abandon() noexcept;
    [[nodiscard]] bool IsLoaded() const noexcept { return m_bLoaded; }

    /// The procedure with that name, or null with the code in GetLastError().
    template <class Procedure>
    [[nodiscard]] Procedure GetProcedure(const char* szName) const noexcept
    {
        return reinterpret_cast<Procedure>(reinterpret_cast<void*>(::GetProcAddress(m_hModule.Get(), szName)));
    }

private:
    [[nodiscard]] bool Adopt(HMODULE hModule, DWORD* pdwError) noexcept;

    UniqueModule m_hModule;
    bool m_bLoaded = false;
};

/// Looks up procedures of a loaded library and continues after a missing one.
class ProcedureLoader {
public:
    explicit ProcedureLoader(const Wrapper& library) noexcept : m_library(library) {}

    /// Sets `pfn` to the procedure with that name, null when the library does not export it. GetProcAddress.
    template <class Procedure>
    void Take(Procedure& pfn, const char* szName) noexcept
    {
        pfn = m_library.GetProcedure<Procedure>(szName);
        if (!pfn) m_dwError = ::GetLastError();
    }
    /// True when all were found; otherwise false with the code of the last missing one in `*pdwError` (may be null).
    [[nodiscard]] bool HasAll(DWORD* pdwError) const noexcept
    {
        if (m_dwError != ERROR_SUCCESS && pdwError) *pdwError = m_dwError;
        return m_dwError == ERROR_SUCCESS;
    }

private:
    const Wrapper& m_library;
    DWORD m_dwError = ERROR_SUCCESS;
};

/// The trace library, "KzDbg64.dll".
class KzDbg : public Wrapper {
public:
    /// Loads "KzDbg64.dll" from `tstrFolder` and resolves its procedures. False with the code of the failure.
    [[nodiscard]] bool LoadFrom(const std::wstring& tstrFolder, DWORD* pdwError = nullptr);
    /// With true, resolves all procedures and returns whether all exist (false with the last error). With false, clears
    /// them and returns false.
    bool Resolve(bool bResolve, DWORD* pdwError = nullptr) noexcept;
    void Free() noexcept override;

    KzDbgInitializeProc m_pfnInitialize = nullptr;
    KzDbgUninitializeProc m_pfnUninitialize = nullptr;
    KzDbgTraceProc m_pfnTrace = nullptr;
};

}  // namespace KzCommon::Library
