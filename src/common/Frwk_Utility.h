// The product's own registry key and folders.
#pragma once

#include "common/KzComn_Machine.h"

#include <string>
#include <vector>

namespace Frwk::Utility {

/// The product's key below HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kProductKey[] = L"Software\\Kazmere\\KZVLT";

/// The registry view of the product's keys: a KzCommon::Storage::RegistryView.
[[nodiscard]] DWORD ProductRegistryView();

/// The place of a value of the product's key.
[[nodiscard]] KzCommon::RegistryPlace ProductValue(const std::wstring& tstrName);

/// The install folder, value "ProductPath", with trailing backslash; empty when unknown, with a trace line when
/// unreadable.
[[nodiscard]] std::wstring GetInstalledFolder(const KzCommon::Machine& machine);

/// Full path of a file in the install folder; empty when the folder is unknown (a bare name would be relative to the
/// current folder).
[[nodiscard]] std::wstring InstalledFile(const KzCommon::Machine& machine, const wchar_t* szName);

/// A string value of the product key, or `tstrDefault` when it is missing or not a text.
[[nodiscard]] std::wstring GetStrFromHKLM_KZVLT(const KzCommon::Machine& machine, const std::wstring& tstrName,
                                                const std::wstring& tstrDefault);

/// Writes a string value of the product key and traces the result. An empty name or value is only traced.
void WriteToRegHKLM_KZVLT(KzCommon::Machine& machine, const std::wstring& tstrName, const std::wstring& tstrValue);

/// The product's language tag, value "Language", "EN-US" when it is missing.
[[nodiscard]] std::wstring GetLanguage(const KzCommon::Machine& machine);

}  // namespace Frwk::Utility
