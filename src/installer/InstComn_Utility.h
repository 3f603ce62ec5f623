// Restarting Windows.
#pragma once

#include <windows.h>

namespace InstCommon::Utility {

/// Enables a privilege (such as SE_SHUTDOWN_NAME) in a token opened with TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY. False,
/// with a trace line, when that fails or the token does not hold the privilege. AdjustTokenPrivileges.
[[nodiscard]] bool SetPrivilege(HANDLE hToken, const wchar_t* szPrivilege);

/// Asks Windows to restart. Applications may refuse: none is closed by force. False, with a trace line, when the
/// privilege cannot be had or Windows declines. ExitWindowsEx.
[[nodiscard]] bool ReStartWindows();

}  // namespace InstCommon::Utility
