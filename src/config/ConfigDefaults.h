// The built-in knowledge of the product's settings: types, defaults, secrets; the size limit of a file.
#pragma once

#include "common/KzComn_XmlParser.h"
#include "config/ConfigValue.h"

#include <span>

namespace Config {

/// The size limit of a configuration file, in bytes.
inline constexpr std::size_t kMaxFileBytes = KzCommon::Storage::XmlParser::kMaxBytes;

/// One known setting.
struct Default {
    const wchar_t* szTagPath;  ///< in the form of TagPath::Text
    Type eType;
    const wchar_t* szValue;  ///< the default for a file without the setting
    /// Never appears unencrypted in the trace or in a file that the program writes.
    bool bSecret = false;
};

/// All known settings.
[[nodiscard]] std::span<const Default> Defaults() noexcept;
/// The setting with that path (case-insensitive); null for an unknown setting.
[[nodiscard]] const Default* FindDefault(const TagPath& path);
/// Whether the setting is known and secret.
[[nodiscard]] bool IsSecret(const TagPath& path);

}  // namespace Config
