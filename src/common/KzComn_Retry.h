// What other programs (scanners, indexers) hold open for a moment is tried again.
#pragma once

#include "common/KzComn_Result.h"

#include <windows.h>

namespace KzCommon::Storage {

/// How often a failed attempt is repeated, and the pause before each repetition in milliseconds.
inline constexpr unsigned kInUseRepetitions = 20;
inline constexpr DWORD kHeldPauseMs = 100;

/// Whether a code can mean that another program uses the object: ERROR_ACCESS_DENIED (5), ERROR_SHARING_VIOLATION (32),
/// ERROR_LOCK_VIOLATION (33), ERROR_USER_MAPPED_FILE (1224).
[[nodiscard]] constexpr bool IsInUse(DWORD dwCode) noexcept
{
    return dwCode == ERROR_ACCESS_DENIED || dwCode == ERROR_SHARING_VIOLATION || dwCode == ERROR_LOCK_VIOLATION ||
           dwCode == ERROR_USER_MAPPED_FILE;
}

/// How often attempts are repeated. Those that share one wait together no longer than it says: a thousand of them must
/// not take half an hour.
struct Patience {
    unsigned uRepetitions = kInUseRepetitions;  ///< that are left
};

/// Calls `attempt`, a bool(DWORD& dwError), until it is true: again while `patience` lasts, kHeldPauseMs apart, while
/// its code is one of IsInUse() and `mayPass`, a bool(), does not say at the first such failure that waiting
/// cannot help. False with the last code in `*pdwError` (may be null). Sleep.
template <class Attempt, class MayPass>
[[nodiscard]] bool RetryWhileInUse(Attempt&& attempt, MayPass&& mayPass, Patience& patience, DWORD* pdwError)
{
    for (bool bFirst = true;; bFirst = false) {
        DWORD dwError = ERROR_SUCCESS;
        if (attempt(dwError)) return true;
        const bool bAgain = IsInUse(dwError) && patience.uRepetitions > 0 && (!bFirst || mayPass());
        if (!bAgain) return Fail(dwError, pdwError);
        --patience.uRepetitions;
        ::Sleep(kHeldPauseMs);
    }
}

/// The same at most kInUseRepetitions times, some two seconds.
template <class Attempt, class MayPass>
[[nodiscard]] bool RetryWhileInUse(Attempt&& attempt, MayPass&& mayPass, DWORD* pdwError)
{
    Patience patience;
    return RetryWhileInUse(attempt, mayPass, patience, pdwError);
}

/// The same where every such failure may pass. What cannot (a read-only file, a folder in a file's place) is the
/// caller's to look for first.
template <class Attempt>
[[nodiscard]] bool RetryWhileInUse(Attempt&& attempt, DWORD* pdwError)
{
    return RetryWhileInUse(
        attempt, [] { return true; }, pdwError);
}

}  // namespace KzCommon::Storage
