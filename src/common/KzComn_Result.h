// Error reporting of operations that do not throw.
#pragma once

#include <windows.h>

namespace KzCommon::Storage {

/// Sets `*pdwError` (may be null) and returns false.
[[nodiscard]] inline bool Fail(DWORD dwCode, DWORD* pdwError) noexcept
{
    if (pdwError) *pdwError = dwCode;
    return false;
}

/// Collects the result of several operations: the code of the first failure.
class FirstFailure {
public:
    void Note(bool bOk, DWORD dwCode) noexcept
    {
        if (!bOk && m_dwCode == ERROR_SUCCESS) m_dwCode = dwCode;
    }
    [[nodiscard]] bool Report(DWORD* pdwError) const noexcept
    {
        return m_dwCode == ERROR_SUCCESS || Fail(m_dwCode, pdwError);
    }

private:
    DWORD m_dwCode = ERROR_SUCCESS;
};

}  // namespace KzCommon::Storage
