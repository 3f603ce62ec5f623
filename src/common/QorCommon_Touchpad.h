// Detects an outdated touchpad driver that conflicts with the product's keyboard filter.
#pragma once

#include <string>

/// Inspects the devices of the machine.
class CDeployComponentsAction {
public:
    /// The driver version of the first present mouse-class device whose description contains the product's "ETDName"
    /// and whose driver key has a version; otherwise empty. SetupDiGetClassDevsW.
    [[nodiscard]] static std::wstring GetDriverVersion();
};

namespace QorCommon {

/// The lowest supported driver version, value "ETDMinVersion" of the product key; empty when missing.
[[nodiscard]] std::wstring GetETDMinVersionFromRegistry();

/// Whether `tstrCurrent` is older than `tstrMinimum`, both dotted decimal. Compares parts as numbers; if all common
/// parts are equal, the one with fewer parts is older. Text that is not a number counts as 0.
[[nodiscard]] bool IsDriverOlder(const std::wstring& tstrCurrent, const std::wstring& tstrMinimum);

/// Whether the touchpad's driver is older than supported or, without such a touchpad, the installation is marked as
/// affected ("KeystrokeBlackList" = "1").
[[nodiscard]] bool IsETDExistAndDriverNotUpToDate();

}  // namespace QorCommon
