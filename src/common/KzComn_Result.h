// How operations that do not throw report their code.
#pragma once

#include <windows.h>

namespace KzCommon::Storage {

/// "Fail with this code": sets `*pdwError` (may be null) and returns false.
[[nodiscard]] inline bool Fail(DWORD dwCode, DWORD* pdwError) noexcept
{
    if (pdwError) *pdwError = dwCode;
    return false;
}

/// The outcome of many operations of which all are tried: the code of the first that failed.
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
