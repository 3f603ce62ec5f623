// Libraries that are loaded at run time.
#pragma once

#include "common/KzComn_Handle.h"
#include "common/KzDbg.h"

#include <string>

namespace KzCommon::Library {

/// Owner of a module that is loaded at run time; frees it when destroyed.
class Wrapper {
public:
    Wrapper() noexcept = default;
    Wrapper(const Wrapper&) = delete;
    Wrapper& operator=(const Wrapper&) = delete;
    virtual ~Wrapper() = default;

    /// Loads a library by path. A relative path is taken from the folder of the running program, never from the current
    /// folder, where somebody else could have put a library of that name. What the library needs itself is looked for
    /// beside it and in the system folder only. False with the code in `*pdwError` (may be null). LoadLibraryExW.
    [[nodiscard]] bool Load(const std::wstring& tstrPath, DWORD* pdwError = nullptr);
    /// Loads a library of the operating system by its bare name, from the system folder only. LoadLibraryExW.
    [[nodiscard]] bool LoadSystem(const wchar_t* szName, DWORD* pdwError = nullptr);
    /// FreeLibrary.
    virtual void Free() noexcept;
    /// Leaves the library where it is, for good: after a fault inside it, not even freeing it is safe.
    void Abandon() noexcept;
    [[nodiscard]] bool IsLoaded() const noexcept { return m_bLoaded; }

    /// The procedure of that name, or null with the code left in GetLastError().
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

/// Takes procedures out of a loaded library, each whatever became of those before it.
class ProcedureLoader {
public:
    explicit ProcedureLoader(const Wrapper& library) noexcept : m_library(library) {}

    /// Fills `pfn` with the procedure of that name, null when the library has none. GetProcAddress.
    template <class Procedure>
    void Take(Procedure& pfn, const char* szName) noexcept
    {
        pfn = m_library.GetProcedure<Procedure>(szName);
        if (!pfn) m_dwError = ::GetLastError();
    }
    /// True when none was missing; otherwise false with the code of the last that was, in `*pdwError` (may be null).
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
    /// Loads "KzDbg64.dll" from `tstrFolder` and resolves its procedures. False with the code of what failed.
    [[nodiscard]] bool LoadFrom(const std::wstring& tstrFolder, DWORD* pdwError = nullptr);
    /// With false, forgets the procedures and returns false. With true, resolves every one of them and returns false,
    /// with the last error, when any is missing.
    bool Resolve(bool bResolve, DWORD* pdwError = nullptr) noexcept;
    void Free() noexcept override;

    KzDbgInitializeProc m_pfnInitialize = nullptr;
    KzDbgUninitializeProc m_pfnUninitialize = nullptr;
    KzDbgTraceProc m_pfnTrace = nullptr;
};

}  // namespace KzCommon::Library
