// Texts for error codes.
#pragma once

#include <windows.h>

#include <string>

namespace Check {

/// The meaning of a Win32 code, an HRESULT (also one around a Win32 code) or a result of the configuration provider:
/// the product's own text, otherwise Windows's, otherwise "error 1234". FormatMessageW.
[[nodiscard]] std::wstring DescribeError(DWORD dwCode);

}  // namespace Check
