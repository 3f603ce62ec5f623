// Checks of file and folder names from outside the program.
#pragma once

#include <string_view>

namespace KzCommon::Storage::File {

/// Whether `tstrName` is a valid name of one file or folder, so that a folder, a backslash and the name give a path in
/// that folder: no separator, drive, stream, wildcard or control character, not only dots and spaces, and not a device
/// ("NUL", "COM1", with or without extension).
[[nodiscard]] bool IsPlainName(std::wstring_view tstrName) noexcept;

/// Whether the system treats a name as a device in every folder ("NUL", "COM1", with or without extension).
[[nodiscard]] bool IsDevice(std::wstring_view tstrName) noexcept;

}  // namespace KzCommon::Storage::File
