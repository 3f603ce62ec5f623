#include "hostile/SystemWatch.h"

#include "common/KzComn_String.h"

#include <gtest/gtest.h>
#include <shlobj.h>

#include <utility>

namespace {

Judge s_judge;
std::wstring s_tstrSandbox;
unsigned s_cJudged = 0;

enum class Reach { eSandbox, eAnywhere, eNowhere };

/// Whether a call may go through to the system.
bool MayPass(std::string_view strCall, const wchar_t* szPlace, Reach eReach)
{
    if (!s_judge || !szPlace) return true;
    ++s_cJudged;
    const Judge judge = std::exchange(s_judge, nullptr);  // what the judge itself does is not watched
    const bool bAllowed = judge(strCall, szPlace);
    EXPECT_TRUE(bAllowed) << strCall << " goes to " << KzCommon::String::ToUtf8(szPlace);
    s_judge = judge;
    wchar_t szFull[1024] = {};
    ::GetFullPathNameW(szPlace, 1024, szFull, nullptr);
    const bool bInside = std::wstring_view(szFull).starts_with(s_tstrSandbox);
    return bAllowed && (eReach == Reach::eAnywhere || (eReach == Reach::eSandbox && bInside));
}

template <class Function>
Function Real(const char* szName)
{
    FARPROC pfn = nullptr;
    for (const wchar_t* szModule : {L"kernel32.dll", L"advapi32.dll"}) {
        if (!pfn) pfn = ::GetProcAddress(::LoadLibraryW(szModule), szName);
    }
    return reinterpret_cast<Function>(reinterpret_cast<void*>(pfn));
}

}  // namespace

// Puts a function in the place of an imported one.
#define IMPORT(Name, Function)                   \
    extern "C" decltype(&Function) __imp_##Name; \
    decltype(&Function) __imp_##Name = &Function;

// One watched function: its parameters, the arguments that it is passed on with, the place that it is about, how far it
// may reach, and what it answers otherwise.
#define WATCHED(Name, Result, Parameters, Arguments, szPlace, eReach, Refused) \
    static Result WINAPI Watched##Name Parameters                              \
    {                                                                          \
        static const auto s_pfn = Real<Result(WINAPI*) Parameters>(#Name);     \
        if (MayPass(#Name, szPlace, eReach)) return s_pfn Arguments;           \
        ::SetLastError(ERROR_ACCESS_DENIED);                                   \
        return Refused;                                                        \
    }                                                                          \
    IMPORT(Name, Watched##Name)

// clang-format off
WATCHED(CreateDirectoryW, BOOL, (LPCWSTR sz, LPSECURITY_ATTRIBUTES p), (sz, p), sz, Reach::eSandbox, FALSE)
WATCHED(RemoveDirectoryW, BOOL, (LPCWSTR sz), (sz), sz, Reach::eSandbox, FALSE)
WATCHED(DeleteFileW, BOOL, (LPCWSTR sz), (sz), sz, Reach::eSandbox, FALSE)
WATCHED(SetFileAttributesW, BOOL, (LPCWSTR sz, DWORD dw), (sz, dw), sz, Reach::eSandbox, FALSE)
WATCHED(CopyFileW, BOOL, (LPCWSTR szFrom, LPCWSTR sz, BOOL b), (szFrom, sz, b), sz, Reach::eSandbox, FALSE)
WATCHED(FindFirstFileW, HANDLE, (LPCWSTR sz, LPWIN32_FIND_DATAW p), (sz, p), sz, Reach::eSandbox, INVALID_HANDLE_VALUE)
WATCHED(WritePrivateProfileStringW, BOOL, (LPCWSTR s, LPCWSTR k, LPCWSTR v, LPCWSTR sz), (s, k, v, sz), sz, Reach::eSandbox, FALSE)
WATCHED(CreateFileW, HANDLE, (LPCWSTR sz, DWORD a, DWORD s, LPSECURITY_ATTRIBUTES p, DWORD c, DWORD f, HANDLE h), (sz, a, s, p, c, f, h),
        a & GENERIC_WRITE ? sz : nullptr, Reach::eSandbox, INVALID_HANDLE_VALUE)
WATCHED(MoveFileExW, BOOL, (LPCWSTR szFrom, LPCWSTR sz, DWORD dw), (szFrom, sz, dw), sz ? sz : szFrom,
        dw & MOVEFILE_DELAY_UNTIL_REBOOT ? Reach::eNowhere : Reach::eSandbox, !!(dw & MOVEFILE_DELAY_UNTIL_REBOOT))
WATCHED(RegCreateKeyExW, LSTATUS, (HKEY h, LPCWSTR sz, DWORD r, LPWSTR c, DWORD o, REGSAM a, const LPSECURITY_ATTRIBUTES p, PHKEY k, LPDWORD d),
        (h, sz, r, c, o, a, p, k, d), sz, Reach::eAnywhere, ERROR_ACCESS_DENIED)
WATCHED(RegOpenKeyExW, LSTATUS, (HKEY h, LPCWSTR sz, DWORD o, REGSAM a, PHKEY k), (h, sz, o, a, k), a & (DELETE | KEY_SET_VALUE) ? sz : nullptr,
        Reach::eAnywhere, ERROR_ACCESS_DENIED)
// clang-format on

static BOOL WINAPI SandboxFolder(PCIDLIST_ABSOLUTE, LPWSTR szPath)
{
    szPath[(s_tstrSandbox + L"Shell").copy(szPath, MAX_PATH - 1)] = L'\0';
    return TRUE;
}
IMPORT(SHGetPathFromIDListW, SandboxFolder)

SystemWatch::SystemWatch(const std::wstring& tstrSandbox, const Judge& judge)
{
    s_tstrSandbox = tstrSandbox;
    s_judge = judge;
}

SystemWatch::~SystemWatch()
{
    s_judge = nullptr;
}

unsigned CountJudged() noexcept
{
    return s_cJudged;
}
