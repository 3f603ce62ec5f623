// The text of a registry file (.reg).
#pragma once

#include "common/KzComn_Machine.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// What a registry file says about keys and values; each may be empty.
struct RegistryTextTaker {
    std::function<void(const KzCommon::RegistryPlace& key)> key;        ///< [key]
    std::function<void(const KzCommon::RegistryPlace& key)> removeKey;  ///< [-key]
    /// "name"=...; nothing for "name"=-
    std::function<void(const KzCommon::RegistryPlace& place, std::optional<KzCommon::StoredValue> optValue)> value;
};

/// Reads the bytes of a file of Windows Registry Editor 5, UTF-16 with BOM or UTF-8, and hands each key and value on in
/// the order of the file. A missing header is no failure. Returns the numbers of the lines that say nothing that is
/// known; the others count.
[[nodiscard]] std::vector<std::size_t> ReadRegistryText(std::string_view strBytes, const RegistryTextTaker& taker);

}  // namespace Check
