// Paths as the caller on another system knows them.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

namespace Check {

/// The drive on which Wine shows the host's files, "Z:", from the environment variable BREVANT_HOST_DRIVE. Only
/// tools/check.sh sets it; without it the functions below change nothing. GetEnvironmentVariableW.
[[nodiscard]] const std::wstring& HostDrive();

/// The host's name of a file on that drive, with slashes; nothing for any other path.
[[nodiscard]] std::optional<std::wstring> HostPathOf(const std::wstring& tstrPath,
                                                     const std::wstring& tstrDrive = HostDrive());

/// The text with the host's names of all files on that drive.
[[nodiscard]] std::wstring WithHostPaths(const std::wstring& tstrText, const std::wstring& tstrDrive = HostDrive());

/// The same in every text of a value.
void ShowHostPaths(Json::Value& value, const std::wstring& tstrDrive = HostDrive());

}  // namespace Check
