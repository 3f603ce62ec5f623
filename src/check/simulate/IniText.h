// INI files as Windows reads them, out of bytes.
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

/// Whether a file with these bytes holds UTF-16, by its BOM; every other one is in the system's code page.
[[nodiscard]] bool IsUtf16(std::string_view strBytes) noexcept;

/// The first section of that name; nothing when the file lacks it. Comments and empty lines are left out.
[[nodiscard]] std::optional<IniLines> ReadIniLines(std::string_view strBytes, const std::wstring& tstrSection);

/// A section of these lines as Storage::Ini::ReadSection() gives it.
[[nodiscard]] KzCommon::Storage::Ini::Section ToIniSection(const std::optional<IniLines>& optLines,
                                                           const KzCommon::Storage::Ini::SectionGrowth& growth);

/// A value as a line of a file has it that is written with it: without spaces around it and, unless `bUtf16`, "?" for
/// each character that the system's code page lacks. WideCharToMultiByte.
[[nodiscard]] std::wstring AsWritten(const std::wstring& tstrValue, bool bUtf16);

/// A value as it is read: without one pair of quotes.
[[nodiscard]] std::wstring AsRead(std::wstring_view tstrWritten);

/// A text without spaces around it.
[[nodiscard]] std::wstring WithoutSpaces(std::wstring_view tstrText);

}  // namespace Check
