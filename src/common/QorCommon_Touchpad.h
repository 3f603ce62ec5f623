// Whether an outdated touchpad driver is installed that clashes with the product's keyboard filter.
#pragma once

#include <string>

/// Looks at the devices of the machine.
class CDeployComponentsAction {
public:
    /// The driver version of the first present mouse-class device whose description contains the product's "ETDName"
    /// and whose driver key has one; empty when there is none. SetupDiGetClassDevsW.
    [[nodiscard]] static std::wstring GetDriverVersion();
};

namespace QorCommon {

/// The lowest supported driver version, value "ETDMinVersion" of the product key; empty when missing.
[[nodiscard]] std::wstring GetETDMinVersionFromRegistry();

/// Whether `tstrCurrent` is older than `tstrMinimum`, both dotted decimal: by the first part that differs, compared as
/// numbers, or, when all common parts are equal, by having fewer parts. Text that is no number counts as 0.
[[nodiscard]] bool IsDriverOlder(const std::wstring& tstrCurrent, const std::wstring& tstrMinimum);

/// Whether the touchpad's driver is older than supported or, where there is no such touchpad, the installation is
/// marked as affected ("KeystrokeBlackList" = "1").
[[nodiscard]] bool IsETDExistAndDriverNotUpToDate();

}  // namespace QorCommon
