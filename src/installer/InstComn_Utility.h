// Restarting Windows.
#pragma once

#include <windows.h>

namespace InstCommon::Utility {

/// Enables a privilege (such as SE_SHUTDOWN_NAME) in a token opened with TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY. False,
/// with a trace line, on failure or when the token does not have the privilege. AdjustTokenPrivileges.
[[nodiscard]] bool SetPrivilege(HANDLE hToken, const wchar_t* szPrivilege);

/// Requests a restart of Windows. Applications may refuse; none is forced to close. False, with a trace line, when the
/// privilege is not available or Windows refuses. ExitWindowsEx.
[[nodiscard]] bool ReStartWindows();

}  // namespace InstCommon::Utility
