// What is known of the product's settings without a file: types, built-in defaults, secrets; the limit of a file.
#pragma once

#include "common/KzComn_XmlParser.h"
#include "config/ConfigValue.h"

#include <span>

namespace Config {

/// The largest configuration file that is read, in bytes.
inline constexpr std::size_t kMaxFileBytes = KzCommon::Storage::XmlParser::kMaxBytes;

/// One setting that the program knows.
struct Default {
    const wchar_t* szTagPath;  ///< as TagPath::Text gives it
    Type eType;
    const wchar_t* szValue;  ///< what a file that does not hold the setting is taken to say
    /// Never in clear in the trace or in a file that the program writes.
    bool bSecret = false;
};

/// All of them.
[[nodiscard]] std::span<const Default> Defaults() noexcept;
/// The one of that path, compared without regard to case; null for a setting that the program does not know.
[[nodiscard]] const Default* FindDefault(const TagPath& path);
/// Whether the program knows the setting and calls it secret.
[[nodiscard]] bool IsSecret(const TagPath& path);

}  // namespace Config
