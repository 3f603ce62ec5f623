#include "common/KzComn_Privilege.h"

namespace KzCommon::Process {

EnabledPrivilege::EnabledPrivilege(const wchar_t* szName) noexcept
{
    TOKEN_PRIVILEGES wanted{};
    wanted.PrivilegeCount = 1;
    wanted.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    constexpr DWORD kAccess = TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY;
    if (!::OpenProcessToken(::GetCurrentProcess(), kAccess, m_token.Receive()) ||
        !::LookupPrivilegeValueW(nullptr, szName, &wanted.Privileges[0].Luid)) {
        return;
    }
    DWORD cb = 0;
    ::AdjustTokenPrivileges(m_token.Get(), FALSE, &wanted, sizeof(m_before), &m_before, &cb);
}

EnabledPrivilege::~EnabledPrivilege()
{
    if (m_before.PrivilegeCount == 0) return;
    const DWORD dwLastError = ::GetLastError();
    ::AdjustTokenPrivileges(m_token.Get(), FALSE, &m_before, 0, nullptr, nullptr);
    ::SetLastError(dwLastError);
}

}  // namespace KzCommon::Process
