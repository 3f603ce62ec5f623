// Registry values of this machine.
#pragma once

#include "agent/RegistryPatch.h"
#include "check/verify/Presence.h"
#include "common/KzComn_Machine.h"

#include <string>

namespace Check {

/// A registry value of one of the types that an update writes.
struct FoundValue {
    DWORD dwError = ERROR_SUCCESS;  ///< why it is not readable as any of these types
    RegistryType eType = RegistryType::eUnknown;
    std::wstring tstrText;
    ULONGLONG ullNumber = 0;

    /// A value with an invalid key path, such as one with a leading backslash, does not exist either.
    [[nodiscard]] bool IsThere() const noexcept { return !MeansNothingThere(dwError) && dwError != ERROR_BAD_PATHNAME; }
    /// Whether it is known if the value exists.
    [[nodiscard]] bool IsKnown() const noexcept
    {
        return !IsThere() || dwError == ERROR_SUCCESS || dwError == ERROR_INVALID_DATA;
    }
};

/// Whether values of a type hold text; those of any other type that is written hold a number.
constexpr bool HoldsText(RegistryType eType) noexcept
{
    switch (eType) {
        case RegistryType::eText: return true;
        case RegistryType::eDword:
        case RegistryType::eQword:
        case RegistryType::eMultiText:  // not written
        case RegistryType::eUnknown: break;
    }
    return false;
}

/// Reads a value below HKEY_LOCAL_MACHINE.
[[nodiscard]] FoundValue ReadRegistryValue(const KzCommon::Machine& machine, const std::wstring& tstrKeyPath,
                                           const std::wstring& tstrName);

/// The text for the data of a registry value: "text", REG_DWORD 7.
[[nodiscard]] std::wstring DescribeValue(RegistryType eType, const std::wstring& tstrText, ULONGLONG ullNumber);

}  // namespace Check
