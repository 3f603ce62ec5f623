// Patterns with "*" and "?" for the names of files.
#pragma once

#include <string_view>

namespace KzCommon::Storage::File {

/// Whether a name matches a pattern as Windows lists files: without regard to case, "*.*" any name, "a?.b" also "a.b",
/// "a." only "a", and an extension of three characters after wildcards the longer ones as well, by their short names.
[[nodiscard]] bool MatchesPattern(std::wstring_view tstrName, std::wstring_view tstrPattern);

}  // namespace KzCommon::Storage::File
