// Reads registry files (.reg).
#pragma once

#include "common/KzComn_Machine.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// Receives the keys and values of a registry file; each function may be empty.
struct RegistryTextTaker {
    std::function<void(const KzCommon::RegistryPlace& key)> key;        ///< [key]
    std::function<void(const KzCommon::RegistryPlace& key)> removeKey;  ///< [-key]
    /// "name"=...; empty for "name"=-
    std::function<void(const KzCommon::RegistryPlace& place, std::optional<KzCommon::StoredValue> optValue)> value;
};

/// Reads the bytes of a file of Windows Registry Editor 5, UTF-16 with BOM or UTF-8, and passes on each key and value
/// in file order. The header may be missing. Returns the numbers of unknown lines, which are skipped.
[[nodiscard]] std::vector<std::size_t> ReadRegistryText(std::string_view strBytes, const RegistryTextTaker& taker);

}  // namespace Check
