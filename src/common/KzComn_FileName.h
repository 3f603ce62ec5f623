// Names of files and folders that come from outside.
#pragma once

#include <string_view>

namespace KzCommon::Storage::File {

/// Whether `tstrName` can be the name of one file or folder, so that a path made of a folder, a backslash and the name
/// lies in that folder: no separator, no drive, no stream, no wildcard, no control character, not only dots and blanks,
/// and not a device ("NUL", "COM1", with or without extension).
[[nodiscard]] bool IsPlainName(std::wstring_view tstrName) noexcept;

/// Whether the system takes a name for a device, whatever folder stands before it ("NUL", "COM1", with or without
/// extension).
[[nodiscard]] bool IsDevice(std::wstring_view tstrName) noexcept;

}  // namespace KzCommon::Storage::File
