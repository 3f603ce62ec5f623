// What another program holds open for a moment is tried again.
#pragma once

#include <windows.h>

#include <utility>

namespace KzCommon::Storage {

/// Calls `attempt`, a `bool(DWORD& dwError)` that leaves the code of its failure in `dwError`, and calls it again while
/// it fails with ERROR_ACCESS_DENIED (5), ERROR_SHARING_VIOLATION (32) or ERROR_LOCK_VIOLATION (33): at most 20 times
/// more, 100 ms apart. False with the last code in `*pdwError` (may be null). Sleep.
template <class Attempt>
[[nodiscard]] bool TryWhileHeld(Attempt&& attempt, DWORD* pdwError)
{
    constexpr unsigned kMostRepetitions = 20;
    constexpr DWORD kPauseMilliseconds = 100;
    for (unsigned uRepetition = 0;; ++uRepetition) {
        DWORD dwError = ERROR_SUCCESS;
        if (attempt(dwError)) return true;
        const bool bHeld =
            dwError == ERROR_ACCESS_DENIED || dwError == ERROR_SHARING_VIOLATION || dwError == ERROR_LOCK_VIOLATION;
        if (!bHeld || uRepetition == kMostRepetitions) {
            if (pdwError) *pdwError = dwError;
            return false;
        }
        ::Sleep(kPauseMilliseconds);
    }
}

}  // namespace KzCommon::Storage
