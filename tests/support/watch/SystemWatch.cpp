#include "support/watch/SystemWatch.h"

#include "common/KzComn_String.h"

#include <gtest/gtest.h>
#include <bcrypt.h>
#include <sddl.h>
#include <shlobj.h>
#include <winioctl.h>
#include <winternl.h>

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

/// Whether a call may reach the system; otherwise the last error is its code.
bool MayPass(std::string_view strCall, const wchar_t* szPlace, bool bAnywhere = false)
{
    if (!s_pWatch || !szPlace) return true;
    const SystemWatch* const pWatch = std::exchange(s_pWatch, nullptr);  // calls of the judge itself are not watched
    const bool bAllowed = pWatch->m_judge(strCall, szPlace);
    EXPECT_TRUE(bAllowed) << strCall << " goes to " << KzCommon::String::ToUtf8(szPlace);
    DWORD dwCode = bAllowed ? pWatch->m_fault(strCall, szPlace) : DWORD{ERROR_ACCESS_DENIED};
    s_pWatch = pWatch;
    if (dwCode == ERROR_SUCCESS && !bAnywhere && !IsInSandbox(szPlace)) dwCode = ERROR_ACCESS_DENIED;
    if (dwCode != ERROR_SUCCESS) ::SetLastError(dwCode);
    return dwCode == ERROR_SUCCESS;
}

/// Whether a call that is not judged must fail; then the last error is its code.
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
    for (const wchar_t* szModule :
         {L"kernel32.dll", L"advapi32.dll", L"shell32.dll", L"ntdll.dll", L"ole32.dll", L"bcrypt.dll"}) {
        if (!pfn) pfn = ::GetProcAddress(::LoadLibraryW(szModule), szName);
    }
    return reinterpret_cast<Function>(reinterpret_cast<void*>(pfn));
}

std::wstring_view LastName(std::wstring_view tstrPath)
{
    while (tstrPath.ends_with(L'\\')) tstrPath.remove_suffix(1);
    return tstrPath.substr(tstrPath.find_last_of(L'\\') + 1);
}

bool IsLinkName(std::wstring_view tstrPath)
{
    const std::wstring_view tstrName = LastName(tstrPath);
    if (!s_pWatch || tstrName.empty()) return false;
    return tstrName == s_pWatch->m_tstrLink || (!s_pWatch->m_tstrVolume.empty() && tstrName == L"Mount");
}

void MarkLink(WIN32_FIND_DATAW* pData)
{
    if (!IsLinkName(pData->cFileName)) return;
    pData->dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
    pData->dwReserved0 = IO_REPARSE_TAG_SYMLINK;
}

constexpr int kRenameInfoEx = 22;
constexpr auto STATUS_UNSUCCESSFUL = static_cast<NTSTATUS>(0xC0000001);

}  // namespace

// Replaces an imported function with the function that follows.
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

// One watched function: its parameters, the arguments to pass on, the place that it concerns, whether it may access
// places outside the sandbox, and its result otherwise.
#define WATCHED(Name, Result, Parameters, Arguments, szPlace, bAnywhere, Refused)   \
    REPLACED(Name, Result, Parameters)                                              \
    {                                                                               \
        return MayPass(#Name, szPlace, bAnywhere) ? REAL(Name) Arguments : Refused; \
    }

// One function that only reads: its parameters, the arguments to pass on, and its result when it must fail.
#define FAILING(Name, Result, Parameters, Arguments, Refused)      \
    REPLACED(Name, Result, Parameters)                             \
    {                                                              \
        return Fails(#Name, L"") ? Refused : REAL(Name) Arguments; \
    }

// clang-format off
WATCHED(CreateDirectoryW, BOOL, (LPCWSTR sz, LPSECURITY_ATTRIBUTES p), (sz, p), sz, false, FALSE)
WATCHED(RemoveDirectoryW, BOOL, (LPCWSTR sz), (sz), sz, false, FALSE)
WATCHED(DeleteFileW, BOOL, (LPCWSTR sz), (sz), sz, false, FALSE)
WATCHED(SetFileAttributesW, BOOL, (LPCWSTR sz, DWORD dw), (sz, dw), sz, false, FALSE)
WATCHED(CopyFileW, BOOL, (LPCWSTR szFrom, LPCWSTR sz, BOOL b), (szFrom, sz, b), sz, false, FALSE)
WATCHED(CreateHardLinkW, BOOL, (LPCWSTR sz, LPCWSTR szFrom, LPSECURITY_ATTRIBUTES p), (sz, szFrom, p), sz, false, FALSE)
WATCHED(WritePrivateProfileStringW, BOOL, (LPCWSTR s, LPCWSTR k, LPCWSTR v, LPCWSTR sz), (s, k, v, sz), sz, false, FALSE)
WATCHED(RegCreateKeyExW, LSTATUS, (HKEY h, LPCWSTR sz, DWORD r, LPWSTR c, DWORD o, REGSAM a, const LPSECURITY_ATTRIBUTES p, PHKEY k, LPDWORD d),
        (h, sz, r, c, o, a, p, k, d), sz, true, ERROR_ACCESS_DENIED)
WATCHED(RegOpenKeyExW, LSTATUS, (HKEY h, LPCWSTR sz, DWORD o, REGSAM a, PHKEY k), (h, sz, o, a, k), a & (DELETE | KEY_SET_VALUE) ? sz : nullptr,
        true, ERROR_ACCESS_DENIED)
FAILING(CoInitializeEx, HRESULT, (LPVOID p, DWORD dw), (p, dw), E_FAIL)
FAILING(CoCreateInstance, HRESULT, (REFCLSID c, LPUNKNOWN u, DWORD dw, REFIID i, LPVOID* pp), (c, u, dw, i, pp), E_FAIL)
FAILING(SHGetMalloc, HRESULT, (IMalloc** pp), (pp), E_FAIL)
FAILING(SHGetSpecialFolderLocation, HRESULT, (HWND h, int n, PIDLIST_ABSOLUTE* pp), (h, n, pp), E_FAIL)
FAILING(FlushFileBuffers, BOOL, (HANDLE h), (h), FALSE)
FAILING(SetEndOfFile, BOOL, (HANDLE h), (h), FALSE)
FAILING(GetFileSizeEx, BOOL, (HANDLE h, PLARGE_INTEGER p), (h, p), FALSE)
FAILING(SetFileSecurityW, BOOL, (LPCWSTR sz, SECURITY_INFORMATION what, PSECURITY_DESCRIPTOR p), (sz, what, p), FALSE)
FAILING(OpenProcessToken, BOOL, (HANDLE h, DWORD dw, PHANDLE ph), (h, dw, ph), FALSE)
FAILING(LookupPrivilegeValueW, BOOL, (LPCWSTR s, LPCWSTR sz, PLUID p), (s, sz, p), FALSE)
// clang-format on

REPLACED(CreateFileW, HANDLE,
         (LPCWSTR sz, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES p, DWORD dwHow, DWORD dwFlags, HANDLE h))
{
    if (!MayPass("CreateFileW", dwAccess & (GENERIC_WRITE | DELETE) ? sz : nullptr)) return INVALID_HANDLE_VALUE;
    if (dwAccess == FILE_LIST_DIRECTORY && Fails("CreateFileW list", sz)) return INVALID_HANDLE_VALUE;
    PSID pOwner = nullptr;
    BOOL bDefaulted = FALSE;
    if (p && p->lpSecurityDescriptor) ::GetSecurityDescriptorOwner(p->lpSecurityDescriptor, &pOwner, &bDefaulted);
    if (pOwner && Fails("CreateFileW owner", sz)) return INVALID_HANDLE_VALUE;
    return REAL(CreateFileW)(sz, dwAccess, dwShare, p, dwHow, dwFlags, h);
}

// Its header does not declare it as imported, so calls go directly to this function.
extern "C" NTSTATUS NTAPI NtOpenFile(PHANDLE ph, ACCESS_MASK access, POBJECT_ATTRIBUTES p, PIO_STATUS_BLOCK pStatus,
                                     ULONG uShare, ULONG uOptions)
{
    constexpr auto kAccessDenied = static_cast<NTSTATUS>(0xC0000022);
    const std::wstring tstrName(p->ObjectName->Buffer, p->ObjectName->Length / sizeof(wchar_t));
    EXPECT_TRUE(tstrName.starts_with(L"\\??\\"));
    if (!MayPass("NtOpenFile", tstrName.c_str() + 4)) return kAccessDenied;
    return REAL(NtOpenFile)(ph, access, p, pStatus, uShare, uOptions);
}

// Likewise.
extern "C" NTSTATUS WINAPI BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* ph, LPCWSTR szName, LPCWSTR sz, ULONG uFlags)
{
    if (Fails("BCryptOpenAlgorithmProvider", szName)) return STATUS_UNSUCCESSFUL;
    return REAL(BCryptOpenAlgorithmProvider)(ph, szName, sz, uFlags);
}

extern "C" NTSTATUS WINAPI BCryptGenRandom(BCRYPT_ALG_HANDLE h, PUCHAR p, ULONG cb, ULONG uFlags)
{
    return Fails("BCryptGenRandom", L"") ? STATUS_UNSUCCESSFUL : REAL(BCryptGenRandom)(h, p, cb, uFlags);
}

REPLACED(Sleep, void, (DWORD dwMs))
{
    if (!s_pWatch || !s_pWatch->m_bHurry) return REAL(Sleep)(dwMs);
    s_pWatch->m_dwPausedMs += dwMs;
}

REPLACED(GetFileSecurityW, BOOL,
         (LPCWSTR sz, SECURITY_INFORMATION asked, PSECURITY_DESCRIPTOR p, DWORD cb, LPDWORD pcb))
{
    const BOOL bDone = REAL(GetFileSecurityW)(sz, asked, p, cb, pcb);
    const bool bForeign = s_pWatch && !s_pWatch->m_tstrForeign.empty() && LastName(sz) == s_pWatch->m_tstrForeign;
    PSID pOwner = nullptr;
    BOOL bDefaulted = FALSE;
    if (!bDone || !bForeign || !::GetSecurityDescriptorOwner(p, &pOwner, &bDefaulted) || !pOwner) return bDone;
    DWORD cbSid = ::GetLengthSid(pOwner);
    EXPECT_TRUE(::CreateWellKnownSid(WinLocalSystemSid, nullptr, pOwner, &cbSid)) << "the owner is replaced";
    return TRUE;
}

REPLACED(SetKernelObjectSecurity, BOOL, (HANDLE h, SECURITY_INFORMATION what, PSECURITY_DESCRIPTOR p))
{
    if ((what & OWNER_SECURITY_INFORMATION) && Fails("SetKernelObjectSecurity owner", L"")) return FALSE;
    return REAL(SetKernelObjectSecurity)(h, what, p);
}

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
    if (s_pWatch) s_pWatch->m_volumeQuestions.emplace_back(sz);
    if (Fails("GetVolumePathNameW", sz)) return FALSE;
    if (!s_pWatch || s_pWatch->m_tstrMountPoint.empty()) return REAL(GetVolumePathNameW)(sz, szMount, cch);
    szMount[s_pWatch->m_tstrMountPoint.copy(szMount, cch - 1)] = L'\0';
    return TRUE;
}

REPLACED(GetVolumeNameForVolumeMountPointW, BOOL, (LPCWSTR sz, LPWSTR szVolume, DWORD cch))
{
    if (!IsLinkName(sz) || s_pWatch->m_tstrVolume.empty())
        return REAL(GetVolumeNameForVolumeMountPointW)(sz, szVolume, cch);
    szVolume[(s_pWatch->m_tstrSandbox + s_pWatch->m_tstrVolume + L"\\").copy(szVolume, cch - 1)] = L'\0';
    return TRUE;
}

REPLACED(GetVolumePathNamesForVolumeNameW, BOOL, (LPCWSTR sz, LPWSTR szPaths, DWORD cch, PDWORD pcch))
{
    if (!s_pWatch || s_pWatch->m_tstrVolume.empty())
        return REAL(GetVolumePathNamesForVolumeNameW)(sz, szPaths, cch, pcch);
    const std::wstring tstrPaths = s_pWatch->m_tstrSandbox + L"Mount\\" + std::wstring(2, L'\0');
    *pcch = static_cast<DWORD>(tstrPaths.size());
    if (cch < tstrPaths.size()) return ::SetLastError(ERROR_MORE_DATA), FALSE;
    tstrPaths.copy(szPaths, cch);
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

/// The target of the watch's link in the form of GetFinalPathNameByHandleW.
static std::wstring FinalTarget(DWORD dwFlags)
{
    const std::wstring& tstrTarget = s_pWatch->m_tstrLinkTarget;
    const std::wstring& tstrHome = s_pWatch->m_tstrSandbox;
    std::wstring tstrFull = KzCommon::String::IsFullPath(tstrTarget) ? tstrTarget : tstrHome + tstrTarget;
    if (tstrTarget.starts_with(L'\\')) tstrFull = tstrHome.substr(0, tstrHome.find(L'\\')) + tstrTarget;
    const HANDLE hTarget =
        REAL(CreateFileW)(tstrFull.c_str(), 0, 0, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    std::wstring tstrPath(1024, L'\0');
    tstrPath.resize(REAL(GetFinalPathNameByHandleW)(hTarget, tstrPath.data(), 1024, dwFlags));
    ::CloseHandle(hTarget);
    return tstrPath;
}

REPLACED(GetFinalPathNameByHandleW, DWORD, (HANDLE hFile, LPWSTR szPath, DWORD cch, DWORD dwFlags))
{
    const DWORD cchDone = REAL(GetFinalPathNameByHandleW)(hFile, szPath, cch, dwFlags);
    if (cchDone >= cch) return cchDone;
    if (Fails("GetFinalPathNameByHandleW", szPath)) return 0;
    if (!s_pWatch) return cchDone;
    // A file in a mounted volume has the volume's path, not the path of the folder; likewise for a link.
    std::wstring tstrPath = szPath;
    if (!s_pWatch->m_tstrVolume.empty())
        KzCommon::String::ReplaceAll(tstrPath, L"\\Mount\\", L"\\" + s_pWatch->m_tstrVolume + L"\\");
    for (const std::wstring& tstrLink : {s_pWatch->m_tstrLink, s_pWatch->m_tstrSwapped}) {
        const std::size_t uLink = tstrPath.find(L"\\" + tstrLink + L"\\");
        if (tstrLink.empty() || s_pWatch->m_tstrLinkTarget.empty() || uLink == std::wstring::npos) continue;
        tstrPath.replace(0, uLink + 1 + tstrLink.size(), FinalTarget(dwFlags));
    }
    EXPECT_LT(tstrPath.size(), cch);
    szPath[tstrPath.copy(szPath, cch - 1)] = L'\0';
    return static_cast<DWORD>(tstrPath.size());
}

/// Simulates a system that supports FileRenameInfoEx, or one that does not.
static BOOL RenameAtOnce(HANDLE hFile, const void* p, DWORD cb)
{
    if (!s_pWatch->m_bRenamesAtOnce) return ::SetLastError(ERROR_INVALID_PARAMETER), FALSE;
    wchar_t szFrom[1024] = {};
    REAL(GetFinalPathNameByHandleW)(hFile, szFrom, 1024, VOLUME_NAME_DOS);
    const auto* const pInfo = static_cast<const FILE_RENAME_INFO*>(p);
    const std::wstring tstrTo(pInfo->FileName, pInfo->FileNameLength / sizeof(wchar_t));
    EXPECT_GE(cb, offsetof(FILE_RENAME_INFO, FileName) + pInfo->FileNameLength + sizeof(wchar_t))
        << "with its terminating null";
    s_pWatch->m_renames.push_back(std::wstring(LastName(szFrom)) + L" > " + tstrTo + L" " +
                                  std::to_wstring(*static_cast<const DWORD*>(p)));
    // Move the target aside first: other programs may have it open with shared deletion.
    const std::wstring tstrAside = tstrTo + L".aside";
    const bool bAside = REAL(MoveFileExW)(tstrTo.c_str(), tstrAside.c_str(), 0) != FALSE;
    const BOOL bDone = REAL(MoveFileExW)(szFrom, tstrTo.c_str(), 0);
    const DWORD dwError = ::GetLastError();
    if (bAside) REAL(DeleteFileW)(tstrAside.c_str());
    ::SetLastError(dwError);
    return bDone;
}

REPLACED(SetFileInformationByHandle, BOOL, (HANDLE hFile, FILE_INFO_BY_HANDLE_CLASS eClass, LPVOID p, DWORD cb))
{
    if (Fails("SetFileInformationByHandle", std::to_wstring(eClass))) return FALSE;
    if (s_pWatch && static_cast<int>(eClass) == kRenameInfoEx) return RenameAtOnce(hFile, p, cb);
    return REAL(SetFileInformationByHandle)(hFile, eClass, p, cb);
}

REPLACED(SHGetPathFromIDListW, BOOL, (PCIDLIST_ABSOLUTE pidl, LPWSTR szPath))
{
    if (Fails("SHGetPathFromIDListW", L"")) return FALSE;
    const BOOL bDone = REAL(SHGetPathFromIDListW)(pidl, szPath);
    if (!s_pWatch || IsInSandbox(szPath)) return bDone;
    szPath[(s_pWatch->m_tstrSandbox + L"Shell").copy(szPath, MAX_PATH - 1)] = L'\0';
    return TRUE;
}

/// Whether an open folder is the simulated link.
static bool IsOpenLink(HANDLE hFile)
{
    wchar_t szPath[1024] = {};
    return s_pWatch && REAL(GetFinalPathNameByHandleW)(hFile, szPath, 1024, VOLUME_NAME_DOS) && IsLinkName(szPath);
}

REPLACED(GetKernelObjectSecurity, BOOL,
         (HANDLE hFile, SECURITY_INFORMATION asked, PSECURITY_DESCRIPTOR p, DWORD cb, LPDWORD pcb))
{
    if (!IsOpenLink(hFile) || s_pWatch->m_tstrLinkRights.empty())
        return REAL(GetKernelObjectSecurity)(hFile, asked, p, cb, pcb);
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
    if (dwCode != FSCTL_GET_REPARSE_POINT || !IsOpenLink(hFile))
        return REAL(DeviceIoControl)(hFile, dwCode, pIn, cbIn, pOut, cbOut, pcb, p);
    // A full path is a junction's target, any other path a symbolic link's.
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
