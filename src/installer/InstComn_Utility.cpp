#include "installer/InstComn_Utility.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_Process.h"

namespace InstCommon::Utility {

using namespace KzCommon;

namespace {

[[nodiscard]] bool EnableShutdown()
{
    UniqueKernelHandle token;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.Receive())) {
        const DWORD dwError = ::GetLastError();
        Trace(kTraceError, L"*** ::OpenProcessToken() failed. [0x%08x]", dwError);
        return false;
    }
    if (SetPrivilege(token.Get(), SE_SHUTDOWN_NAME)) return true;
    Trace(kTraceError, L"*** InstCommon::Utility::SetPrivilege() failed.");
    return false;
}

}  // namespace

bool SetPrivilege(HANDLE hToken, const wchar_t* szPrivilege)
{
    TOKEN_PRIVILEGES privileges{};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    if (!::LookupPrivilegeValueW(nullptr, szPrivilege, &privileges.Privileges[0].Luid)) {
        const DWORD dwError = ::GetLastError();
        Trace(kTraceError, L"*** ::LookupPrivilegeValue(%s) failed. [0x%08x]", szPrivilege, dwError);
        return false;
    }
    // The call also succeeds when the token does not have the privilege; only the code shows that.
    ::SetLastError(ERROR_SUCCESS);
    const BOOL bAdjusted = ::AdjustTokenPrivileges(hToken, FALSE, &privileges, 0, nullptr, nullptr);
    const DWORD dwError = ::GetLastError();
    if (bAdjusted && dwError == ERROR_SUCCESS) return true;
    Trace(kTraceError, L"*** ::AdjustTokenPrivileges() failed. [0x%08x]", dwError);
    return false;
}

bool ReStartWindows()
{
    if (Process::HasPrivileges() && !EnableShutdown()) return false;
    if (::ExitWindowsEx(EWX_REBOOT, 0)) return true;
    const DWORD dwError = ::GetLastError();
    Trace(kTraceError, L"*** ::ExitWindowsEx() failed. [0x%08x]", dwError);
    return false;
}

}  // namespace InstCommon::Utility
