#include "common/KzComn_Library.h"

#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"

namespace KzCommon::Library {

bool Wrapper::Load(const std::wstring& tstrPath, DWORD* pdwError)
{
    const std::wstring tstrAbsolute = Process::ResolveBesideProgram(tstrPath);
    constexpr DWORD kSearch = LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32;
    return Adopt(::LoadLibraryExW(tstrAbsolute.c_str(), nullptr, kSearch), pdwError);
}

bool Wrapper::LoadSystem(const wchar_t* szName, DWORD* pdwError)
{
    return Adopt(::LoadLibraryExW(szName, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32), pdwError);
}

bool Wrapper::Adopt(HMODULE hModule, DWORD* pdwError) noexcept
{
    const DWORD dwError = hModule ? ERROR_SUCCESS : ::GetLastError();
    Free();
    m_hModule.Reset(hModule);
    m_bLoaded = hModule != nullptr;
    if (!m_bLoaded && pdwError) *pdwError = dwError;
    return m_bLoaded;
}

void Wrapper::Free() noexcept
{
    m_hModule.Reset();
    m_bLoaded = false;
}

void Wrapper::Abandon() noexcept
{
    static_cast<void>(m_hModule.Detach());
    Free();
}

bool KzDbg::LoadFrom(const std::wstring& tstrFolder, DWORD* pdwError)
{
    if (!Load(String::JoinPath(tstrFolder, L"KzDbg64.dll"), pdwError)) return false;
    if (Resolve(true, pdwError)) return true;
    Free();
    return false;
}

bool KzDbg::Resolve(bool bResolve, DWORD* pdwError) noexcept
{
    m_pfnInitialize = nullptr;
    m_pfnUninitialize = nullptr;
    m_pfnTrace = nullptr;
    if (!bResolve) return false;

    ProcedureLoader procedures(*this);
    procedures.Take(m_pfnInitialize, "KzDbgInitialize");
    procedures.Take(m_pfnUninitialize, "KzDbgUninitialize");
    procedures.Take(m_pfnTrace, "KzDbgTrace");
    return procedures.HasAll(pdwError);
}

void KzDbg::Free() noexcept
{
    Resolve(false);
    Wrapper::Free();
}

}  // namespace KzCommon::Library
