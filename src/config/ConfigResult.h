// Results of the configuration provider.
#pragma once

#include <windows.h>

namespace Config {

/// Results of the provider. The numbers are part of its interface: a failure has the top four bits 0001.
enum Result : DWORD {
    eOk = 0,
    eNotReady = 0x10000001,         ///< the provider is not initialised
    eNoInstallFolder = 0x10000002,  ///< the product's install folder is unknown
    eNoProtection = 0x10000003,     ///< the system's encryption cannot be used
    eUnknownMessage = 0x10000004,
    eBadRequest = 0x10000005,      ///< the request does not have the form for its message
    eUnreadableFile = 0x10000006,  ///< the file is missing or not valid XML; nothing was read or written
    eUnwritableFile = 0x10000007,  ///< the file cannot be replaced and is unchanged
    eRefusedValue = 0x10000008,    ///< at least one value was refused; all others were read or written
    eInternalError = 0x10000009,   ///< out of memory
};

/// Whether a 32-bit result reports a failure.
[[nodiscard]] constexpr bool IsFailure(DWORD dwResult) noexcept
{
    return dwResult >> 28 == 1;
}

}  // namespace Config
