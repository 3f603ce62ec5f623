// Expands environment variables. Has no dependencies, because the trace library uses it as well.
#pragma once

#include <windows.h>

#include <string>

namespace KzCommon::Process {

/// `tstrText` with its environment variables expanded, or unchanged on failure. ExpandEnvironmentStringsW.
[[nodiscard]] inline std::wstring ExpandEnvironment(const std::wstring& tstrText)
{
    const DWORD cch = ::ExpandEnvironmentStringsW(tstrText.c_str(), nullptr, 0);
    std::wstring tstrExpanded(cch, L'\0');
    const DWORD cchDone = cch ? ::ExpandEnvironmentStringsW(tstrText.c_str(), tstrExpanded.data(), cch) : 0;
    if (cchDone == 0 || cchDone > cch) return tstrText;
    tstrExpanded.resize(cchDone - 1);  // without the terminating zero
    return tstrExpanded;
}

}  // namespace KzCommon::Process
