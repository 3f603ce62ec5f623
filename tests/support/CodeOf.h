#pragma once

#include "common/KzComn_Exception.h"

#include <functional>

/// The code of the exception that an operation throws; 0 without an exception.
inline long CodeOf(const std::function<void()>& operation)
{
    DWORD dwCode = ERROR_SUCCESS;
    const bool bOk = KzCommon::Storage::Guarded(&dwCode, operation);
    return bOk == (dwCode == ERROR_SUCCESS) ? static_cast<long>(dwCode) : -1;
}
