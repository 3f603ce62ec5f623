// What other programs (scanners, indexers) hold open for a moment is tried again.
#pragma once

#include <windows.h>

namespace KzCommon::Storage {

/// How often a failed attempt is repeated, and the pause before each repetition in milliseconds.
inline constexpr unsigned kHeldRepetitions = 20;
inline constexpr DWORD kHeldPauseMs = 100;

/// "Fail with this code": sets `*pdwError` (may be null) and returns false.
[[nodiscard]] inline bool Fail(DWORD dwCode, DWORD* pdwError) noexcept
{
    if (pdwError) *pdwError = dwCode;
    return false;
}

/// Whether a code can mean that another program holds the object open: ERROR_ACCESS_DENIED (5), ERROR_SHARING_VIOLATION
/// (32), ERROR_LOCK_VIOLATION (33).
[[nodiscard]] constexpr bool IsHeldByOthers(DWORD dwCode) noexcept
{
    return dwCode == ERROR_ACCESS_DENIED || dwCode == ERROR_SHARING_VIOLATION || dwCode == ERROR_LOCK_VIOLATION;
}

/// Calls `attempt`, a bool(DWORD& dwError), until it is true: again at most kHeldRepetitions times, kHeldPauseMs apart,
/// while its code is one of IsHeldByOthers(). False with the last code in `*pdwError` (may be null), some two seconds
/// later at the most: what cannot pass (a read-only file, a folder in a file's place) is the caller's to look for
/// first. Sleep.
template <class Attempt>
[[nodiscard]] bool TryWhileHeld(Attempt&& attempt, DWORD* pdwError)
{
    for (unsigned uRepetition = 0;; ++uRepetition) {
        DWORD dwError = ERROR_SUCCESS;
        if (attempt(dwError)) return true;
        if (!IsHeldByOthers(dwError) || uRepetition == kHeldRepetitions) return Fail(dwError, pdwError);
        ::Sleep(kHeldPauseMs);
    }
}

}  // namespace KzCommon::Storage
