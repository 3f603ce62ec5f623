// Codes in words.
#pragma once

#include <windows.h>

#include <string>

namespace Check {

/// What a Win32 code or HRESULT means: the product's own words where it has any, else Windows'. "error 1234" for a code
/// that Windows has no words for. FormatMessageW.
[[nodiscard]] std::wstring DescribeError(DWORD dwCode);

}  // namespace Check
