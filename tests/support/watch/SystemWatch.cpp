#include "support/watch/SystemWatch.h"

#include "common/KzComn_String.h"

#include <gtest/gtest.h>
#include <sddl.h>
#include <shlobj.h>
#include <winioctl.h>

#include <cstring>
#include <utility>

namespace {

const SystemWatch* s_pWatch = nullptr;

bool IsInSandbox(const wchar_t* szPlace)
{
    wchar_t szFull[1024] = {};
    ::GetFullPathNameW(szPlace, 1024, szFull, nullptr);
    std::wstring_view tstrFull = szFull;
    if (tstrFull.starts_with(L"\\\\?\\")) tstrFull.remove_prefix(4);
    return tstrFull.starts_with(s_pWatch->m_tstrSandbox);
}

/// Whether a call may go through to the system; if not, the last error is its code.
bool MayPass(std::string_view strCall, const wchar_t* szPlace, bool bAnywhere = false)
{
    if (!s_pWatch || !szPlace) return true;
    const SystemWatch* const pWatch = std::exchange(s_pWatch, nullptr);  // what the judge itself does is not watched
    const bool bAllowed = pWatch->m_judge(strCall, szPlace);
    EXPECT_TRUE(bAllowed) << strCall << " goes to " << KzCommon::String::ToUtf8(szPlace);
    DWORD dwCode = bAllowed ? pWatch->m_fault(strCall, szPlace) : DWORD{ERROR_ACCESS_DENIED};
    s_pWatch = pWatch;
    if (dwCode == ERROR_SUCCESS && !bAnywhere && !IsInSandbox(szPlace)) dwCode = ERROR_ACCESS_DENIED;
    if (dwCode != ERROR_SUCCESS) ::SetLastError(dwCode);
    return dwCode == ERROR_SUCCESS;
}

/// Whether a call that nobody judges is to fail; then the last error is its code.
bool Fails(std::string_view strCall, const std::wstring& tstrPlace)
{
    const DWORD dwCode = s_pWatch ? s_pWatch->m_fault(strCall, tstrPlace) : DWORD{ERROR_SUCCESS};
    if (dwCode != ERROR_SUCCESS) ::SetLastError(dwCode);
    return dwCode != ERROR_SUCCESS;
}

template <class Function>
Function Real(const char* szName)
{
    FARPROC pfn = nullptr;
    for (const wchar_t* szModule : {L"kernel32.dll", L"advapi32.dll", L"shell32.dll"}) {
        if (!pfn) pfn = ::GetProcAddress(::LoadLibraryW(szModule), szName);
    }
    return reinterpret_cast<Function>(reinterpret_cast<void*>(pfn));
}

bool IsLinkName(std::wstring_view tstrPath)
{
    if (!s_pWatch || s_pWatch->m_tstrLink.empty()) return false;
    while (tstrPath.ends_with(L'\\')) tstrPath.remove_suffix(1);
    return tstrPath.substr(tstrPath.find_last_of(L'\\') + 1) == s_pWatch->m_tstrLink;
}

void MarkLink(WIN32_FIND_DATAW* pData)
{
    if (!IsLinkName(pData->cFileName)) return;
    pData->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
    pData->dwReserved0 = IO_REPARSE_TAG_SYMLINK;
}

}  // namespace

// Puts the function that follows in the place of an imported one.
#define REPLACED(Name, Result, Parameters)           \
    static Result WINAPI Watched##Name Parameters;   \
    extern "C" decltype(&::Name) __imp_##Name;       \
    decltype(&::Name) __imp_##Name = &Watched##Name; \
    static Result WINAPI Watched##Name Parameters

// The system's function.
#define REAL(Name)                                                \
    ([] {                                                         \
        static const auto s_pfn = Real<decltype(&::Name)>(#Name); \
        return s_pfn;                                             \
    }())

// One watched function: its parameters, the arguments that it is passed on with, the place that it is about, whether it
// may reach beyond the sandbox, and what it answers otherwise.
#define WATCHED(Name, Result, Parameters, Arguments, szPlace, bAnywhere, Refused)   \
    REPLACED(Name, Result, Parameters)                                              \
    {                                                                               \
        return MayPass(#Name, szPlace, bAnywhere) ? REAL(Name) Arguments : Refused; \
    }

// clang-format off
WATCHED(CreateDirectoryW, BOOL, (LPCWSTR sz, LPSECURITY_ATTRIBUTES p), (sz, p), sz, false, FALSE)
WATCHED(RemoveDirectoryW, BOOL, (LPCWSTR sz), (sz), sz, false, FALSE)
WATCHED(DeleteFileW, BOOL, (LPCWSTR sz), (sz), sz, false, FALSE)
WATCHED(SetFileAttributesW, BOOL, (LPCWSTR sz, DWORD dw), (sz, dw), sz, false, FALSE)
WATCHED(CopyFileW, BOOL, (LPCWSTR szFrom, LPCWSTR sz, BOOL b), (szFrom, sz, b), sz, false, FALSE)
WATCHED(CreateHardLinkW, BOOL, (LPCWSTR sz, LPCWSTR szFrom, LPSECURITY_ATTRIBUTES p), (sz, szFrom, p), sz, false, FALSE)
WATCHED(WritePrivateProfileStringW, BOOL, (LPCWSTR s, LPCWSTR k, LPCWSTR v, LPCWSTR sz), (s, k, v, sz), sz, false, FALSE)
WATCHED(CreateFileW, HANDLE, (LPCWSTR sz, DWORD a, DWORD s, LPSECURITY_ATTRIBUTES p, DWORD c, DWORD f, HANDLE h), (sz, a, s, p, c, f, h),
        a & (GENERIC_WRITE | DELETE) ? sz : nullptr, false, INVALID_HANDLE_VALUE)
WATCHED(RegCreateKeyExW, LSTATUS, (HKEY h, LPCWSTR sz, DWORD r, LPWSTR c, DWORD o, REGSAM a, const LPSECURITY_ATTRIBUTES p, PHKEY k, LPDWORD d),
        (h, sz, r, c, o, a, p, k, d), sz, true, ERROR_ACCESS_DENIED)
WATCHED(RegOpenKeyExW, LSTATUS, (HKEY h, LPCWSTR sz, DWORD o, REGSAM a, PHKEY k), (h, sz, o, a, k), a & (DELETE | KEY_SET_VALUE) ? sz : nullptr,
        true, ERROR_ACCESS_DENIED)
// clang-format on

REPLACED(MoveFileExW, BOOL, (LPCWSTR szFrom, LPCWSTR szTo, DWORD dwFlags))
{
    const bool bDelayed = s_pWatch && (dwFlags & MOVEFILE_DELAY_UNTIL_REBOOT);
    if (!MayPass("MoveFileExW", szTo ? szTo : szFrom, bDelayed)) return FALSE;
    if (szTo && !MayPass("MoveFileExW source", szFrom, bDelayed)) return FALSE;
    if (!bDelayed) return REAL(MoveFileExW)(szFrom, szTo, dwFlags);
    std::wstring& tstrMove = s_pWatch->m_moves.emplace_back(szFrom + std::wstring(L" > ") + (szTo ? szTo : L""));
    KzCommon::String::ReplaceAll(tstrMove, s_pWatch->m_tstrSandbox, L"");
    if (szTo && !(dwFlags & MOVEFILE_REPLACE_EXISTING)) tstrMove += L" unless it is there";
    return TRUE;
}

REPLACED(GetVolumePathNameW, BOOL, (LPCWSTR sz, LPWSTR szMount, DWORD cch))
{
    if (!s_pWatch) return REAL(GetVolumePathNameW)(sz, szMount, cch);
    s_pWatch->m_volumeQuestions.emplace_back(sz);
    if (Fails("GetVolumePathNameW", sz)) return FALSE;
    if (s_pWatch->m_tstrMountPoint.empty()) return REAL(GetVolumePathNameW)(sz, szMount, cch);
    szMount[s_pWatch->m_tstrMountPoint.copy(szMount, cch - 1)] = L'\0';
    return TRUE;
}

REPLACED(FindFirstFileW, HANDLE, (LPCWSTR sz, LPWIN32_FIND_DATAW pData))
{
    if (!MayPass("FindFirstFileW", sz)) return INVALID_HANDLE_VALUE;
    const HANDLE hFind = REAL(FindFirstFileW)(sz, pData);
    if (hFind != INVALID_HANDLE_VALUE) MarkLink(pData);
    return hFind;
}

REPLACED(FindNextFileW, BOOL, (HANDLE hFind, LPWIN32_FIND_DATAW pData))
{
    if (Fails("FindNextFileW", pData->cFileName) || !REAL(FindNextFileW)(hFind, pData)) return FALSE;
    MarkLink(pData);
    return TRUE;
}

REPLACED(GetFileAttributesW, DWORD, (LPCWSTR sz))
{
    const DWORD dwAttributes = REAL(GetFileAttributesW)(sz);
    const bool bLink = dwAttributes != INVALID_FILE_ATTRIBUTES && IsLinkName(sz);
    return bLink ? dwAttributes | FILE_ATTRIBUTE_REPARSE_POINT : dwAttributes;
}

REPLACED(GetFinalPathNameByHandleW, DWORD, (HANDLE hFile, LPWSTR szPath, DWORD cch, DWORD dwFlags))
{
    const DWORD cchDone = REAL(GetFinalPathNameByHandleW)(hFile, szPath, cch, dwFlags);
    return cchDone < cch && Fails("GetFinalPathNameByHandleW", szPath) ? 0 : cchDone;
}

REPLACED(SetFileInformationByHandle, BOOL, (HANDLE hFile, FILE_INFO_BY_HANDLE_CLASS eClass, LPVOID p, DWORD cb))
{
    if (Fails("SetFileInformationByHandle", std::to_wstring(eClass))) return FALSE;
    return REAL(SetFileInformationByHandle)(hFile, eClass, p, cb);
}

REPLACED(SHGetPathFromIDListW, BOOL, (PCIDLIST_ABSOLUTE pidl, LPWSTR szPath))
{
    const BOOL bDone = REAL(SHGetPathFromIDListW)(pidl, szPath);
    if (!s_pWatch || IsInSandbox(szPath)) return bDone;
    szPath[(s_pWatch->m_tstrSandbox + L"Shell").copy(szPath, MAX_PATH - 1)] = L'\0';
    return TRUE;
}

/// Whether an open folder is one that is called a link.
static bool IsOpenLink(HANDLE hFile)
{
    wchar_t szPath[1024] = {};
    return s_pWatch && REAL(GetFinalPathNameByHandleW)(hFile, szPath, 1024, VOLUME_NAME_DOS) && IsLinkName(szPath);
}

REPLACED(GetKernelObjectSecurity, BOOL,
         (HANDLE hFile, SECURITY_INFORMATION asked, PSECURITY_DESCRIPTOR p, DWORD cb, LPDWORD pcb))
{
    if (!IsOpenLink(hFile) || s_pWatch->m_tstrLinkRights.empty()) {
        return REAL(GetKernelObjectSecurity)(hFile, asked, p, cb, pcb);
    }
    void* pRights = nullptr;
    EXPECT_TRUE(::ConvertStringSecurityDescriptorToSecurityDescriptorW(s_pWatch->m_tstrLinkRights.c_str(),
                                                                       SDDL_REVISION_1, &pRights, nullptr));
    *pcb = ::GetSecurityDescriptorLength(pRights);
    const bool bFits = cb >= *pcb;
    if (bFits) std::memcpy(p, pRights, *pcb);
    ::LocalFree(pRights);
    if (!bFits) ::SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return bFits;
}

REPLACED(DeviceIoControl, BOOL,
         (HANDLE hFile, DWORD dwCode, LPVOID pIn, DWORD cbIn, LPVOID pOut, DWORD cbOut, LPDWORD pcb, LPOVERLAPPED p))
{
    if (dwCode != FSCTL_GET_REPARSE_POINT || !IsOpenLink(hFile)) {
        return REAL(DeviceIoControl)(hFile, dwCode, pIn, cbIn, pOut, cbOut, pcb, p);
    }
    // A junction to a full path, a symbolic link to any other.
    const bool bJunction = KzCommon::String::IsFullPath(s_pWatch->m_tstrLinkTarget);
    const std::wstring tstrTarget = (bJunction ? L"\\??\\" : L"") + s_pWatch->m_tstrLinkTarget;
    const auto cbTarget = static_cast<WORD>(tstrTarget.size() * sizeof(wchar_t));
    const DWORD dwTag = bJunction ? IO_REPARSE_TAG_MOUNT_POINT : IO_REPARSE_TAG_SYMLINK;
    const DWORD dwRelative = 1;
    const WORD lengths[] = {0, 0, 0, cbTarget, 0, 0};
    std::string strData(reinterpret_cast<const char*>(&dwTag), sizeof(dwTag));
    strData.append(reinterpret_cast<const char*>(lengths), sizeof(lengths));
    if (!bJunction) strData.append(reinterpret_cast<const char*>(&dwRelative), sizeof(dwRelative));
    strData.append(reinterpret_cast<const char*>(tstrTarget.data()), cbTarget);
    EXPECT_LE(strData.size(), cbOut);
    *pcb = static_cast<DWORD>(strData.copy(static_cast<char*>(pOut), cbOut));
    return TRUE;
}

SystemWatch::SystemWatch(const std::wstring& tstrSandbox, Judge judge)
    : m_tstrSandbox(tstrSandbox), m_judge(std::move(judge))
{
    s_pWatch = this;
}

SystemWatch::~SystemWatch()
{
    s_pWatch = nullptr;
}
