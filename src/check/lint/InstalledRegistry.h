// The registry of the installed product, as far as it is known.
#pragma once

#include "check/simulate/RegistryTree.h"
#include "check/update/Update.h"
#include "common/KzComn_WindowsMachine.h"

#include <optional>
#include <string>
#include <string_view>

namespace Check {

/// What the registry of the installed product holds: a file "registry.reg" in its folder says so, or, where there is
/// none, this machine when the product is this machine's. Else nothing is known.
class InstalledRegistry {
public:
    explicit InstalledRegistry(const Update& update);
    ~InstalledRegistry() = default;
    InstalledRegistry(const InstalledRegistry&) = delete;  // the tree keeps a pointer to the machine
    InstalledRegistry& operator=(const InstalledRegistry&) = delete;

    /// Whether anything is known.
    [[nodiscard]] bool IsKnown() const noexcept { return m_optTree.has_value(); }
    /// A value below HKEY_LOCAL_MACHINE; nothing when it is missing or not known.
    [[nodiscard]] std::optional<KzCommon::StoredValue> Find(const std::wstring& tstrKeyPath,
                                                            const std::wstring& tstrName) const;

private:
    KzCommon::WindowsMachine m_machine;
    std::optional<RegistryTree> m_optTree;
};

}  // namespace Check
