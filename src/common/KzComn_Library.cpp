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

    DWORD dwError = ERROR_SUCCESS;
    const auto resolve = [&](auto& pfn, const char* szName) {
        pfn = GetProcedure<std::remove_reference_t<decltype(pfn)>>(szName);
        if (!pfn) dwError = ::GetLastError();
    };
    resolve(m_pfnInitialize, "KzDbgInitialize");
    resolve(m_pfnUninitialize, "KzDbgUninitialize");
    resolve(m_pfnTrace, "KzDbgTrace");
    if (dwError != ERROR_SUCCESS && pdwError) *pdwError = dwError;
    return dwError == ERROR_SUCCESS;
}

void KzDbg::Free() noexcept
{
    Resolve(false);
    Wrapper::Free();
}

}  // namespace KzCommon::Library
