// Reads INI files from bytes as Windows does.
#pragma once

#include "common/KzComn_IniFile.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Check {

/// The lines of a section: key and value; a line without "=" has no value.
using IniLines = std::vector<std::pair<std::wstring, std::optional<std::wstring>>>;

/// Whether a file with these bytes is UTF-16, by its BOM; every other file is in the system's code page.
[[nodiscard]] bool IsUtf16(std::string_view strBytes) noexcept;

/// The first section with that name; empty when missing. Without comments and empty lines.
[[nodiscard]] std::optional<IniLines> ReadIniLines(std::string_view strBytes, const std::wstring& tstrSection);

/// A section with these lines as returned by Storage::Ini::ReadSection().
[[nodiscard]] KzCommon::Storage::Ini::Section ToIniSection(const std::optional<IniLines>& optLines,
                                                           const KzCommon::Storage::Ini::SectionGrowth& growth);

/// A value in the form of a line written with it: without surrounding spaces and, unless `bUtf16`, with "?" for each
/// character that is not in the system's code page. WideCharToMultiByte.
[[nodiscard]] std::wstring AsWritten(const std::wstring& tstrValue, bool bUtf16);

/// A value as Windows reads it: without one pair of quotes.
[[nodiscard]] std::wstring AsRead(std::wstring_view tstrWritten);

/// A text without surrounding spaces.
[[nodiscard]] std::wstring WithoutSpaces(std::wstring_view tstrText);

}  // namespace Check
