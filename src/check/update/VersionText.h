// Versions as texts.
#pragma once

#include <string_view>

namespace Check {

/// Whether a text is a version: at least two numbers of up to nine digits, with dots between them.
[[nodiscard]] bool IsVersion(std::wstring_view tstrText);

/// Whether both texts are versions, numbers between dots, and the first one is the older one.
[[nodiscard]] bool IsOlderVersion(std::wstring_view tstrVersion, std::wstring_view tstrInstalled);

}  // namespace Check
