// Patterns with "*" and "?" for file names.
#pragma once

#include <string_view>

namespace KzCommon::Storage::File {

/// Whether a name matches a pattern as in Windows file listings: case-insensitive, "*.*" matches any name, "a?.b" also
/// "a.b", "a." only "a"; an extension of three characters after wildcards also matches longer ones through their short
/// names.
[[nodiscard]] bool MatchesPattern(std::wstring_view tstrName, std::wstring_view tstrPattern);

}  // namespace KzCommon::Storage::File
