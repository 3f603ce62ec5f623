// The product's own registry key and folders.
#pragma once

#include "common/KzComn_Machine.h"

#include <string>
#include <vector>

namespace Frwk::Utility {

/// The product's key below HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kProductKey[] = L"Software\\Kazmere\\KZVLT";

/// The registry view in which the product's keys are found: a KzCommon::Storage::RegistryView.
[[nodiscard]] DWORD ProductRegistryView();

/// The place of a value of the product's key.
[[nodiscard]] KzCommon::RegistryPlace ProductValue(const std::wstring& tstrName);

/// The install folder, value "ProductPath", with trailing backslash; empty when it is not known, with a trace
/// line when it cannot be read.
[[nodiscard]] std::wstring GetInstalledFolder(const KzCommon::Machine& machine);

/// Full path of a file in the install folder; empty when that is not known, for a bare name would mean a file of the
/// current folder.
[[nodiscard]] std::wstring InstalledFile(const KzCommon::Machine& machine, const wchar_t* szName);

/// A string value of the product key, or `tstrDefault` when it is missing or no text.
[[nodiscard]] std::wstring GetStrFromHKLM_KZVLT(const KzCommon::Machine& machine, const std::wstring& tstrName,
                                                const std::wstring& tstrDefault);

/// Writes a string value of the product key and traces the outcome; writes nothing, and says so in the trace, for an
/// empty name or value.
void WriteToRegHKLM_KZVLT(KzCommon::Machine& machine, const std::wstring& tstrName, const std::wstring& tstrValue);

/// The product's language tag, value "Language", "EN-US" when it is missing.
[[nodiscard]] std::wstring GetLanguage(const KzCommon::Machine& machine);

}  // namespace Frwk::Utility
