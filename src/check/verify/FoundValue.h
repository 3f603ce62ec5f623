// Registry values as they are on this machine.
#pragma once

#include "agent/RegistryPatch.h"
#include "check/verify/Presence.h"
#include "common/KzComn_Machine.h"

#include <string>

namespace Check {

/// A registry value of one of the types that an update writes.
struct FoundValue {
    DWORD dwError = ERROR_SUCCESS;  ///< why it cannot be read as any of them
    RegistryType eType = RegistryType::eUnknown;
    std::wstring tstrText;
    ULONGLONG ullNumber = 0;

    /// Of a path that no key can have, such as one with a backslash in front, there is no value either.
    [[nodiscard]] bool IsThere() const noexcept { return !MeansNothingThere(dwError) && dwError != ERROR_BAD_PATHNAME; }
    /// Whether it can be told at all.
    [[nodiscard]] bool IsKnown() const noexcept
    {
        return !IsThere() || dwError == ERROR_SUCCESS || dwError == ERROR_INVALID_DATA;
    }
};

/// Reads a value below HKEY_LOCAL_MACHINE.
[[nodiscard]] FoundValue ReadRegistryValue(const KzCommon::Machine& machine, const std::wstring& tstrKeyPath,
                                           const std::wstring& tstrName);

/// The data of a registry value in words: "text", REG_DWORD 7.
[[nodiscard]] std::wstring DescribeValue(RegistryType eType, const std::wstring& tstrText, ULONGLONG ullNumber);

}  // namespace Check
