// The product's own registry key and folders.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace Frwk::Utility {

/// The product's key below HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kProductKey[] = L"Software\\Kazmere\\KZVLT";

/// The registry view in which the product's keys are found: a KzCommon::Storage::RegistryView.
[[nodiscard]] DWORD ProductRegistryView();

/// The install folder, value "ProductPath", with trailing backslash; empty when it is not known, with a trace
/// line when it cannot be read.
[[nodiscard]] std::wstring GetInstalledFolder();

/// Full path of a file in the install folder; empty when that is not known, for a bare name would mean a file of the
/// current folder.
[[nodiscard]] std::wstring InstalledFile(const wchar_t* szName);

/// A string value of the product key, or `tstrDefault` when it is missing or no text.
[[nodiscard]] std::wstring GetStrFromHKLM_KZVLT(const std::wstring& tstrName, const std::wstring& tstrDefault);

/// Writes a string value of the product key and traces the outcome; writes nothing, and says so in the trace, for an
/// empty name or value.
void WriteToRegHKLM_KZVLT(const std::wstring& tstrName, const std::wstring& tstrValue);

/// The product's language tag, value "Language", "EN-US" when it is missing.
[[nodiscard]] std::wstring GetLanguage();

/// The profile folders of all users, with trailing backslash; false with the Win32 code.
[[nodiscard]] bool EnumUserProfileFolders(std::vector<std::wstring>& folders, DWORD* pdwError);

}  // namespace Frwk::Utility
