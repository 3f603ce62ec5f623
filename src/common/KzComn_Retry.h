// Retries operations on objects that other programs (scanners, indexers) keep open for a moment.
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

/// How often attempts are repeated. Attempts that share one object share its limit: a thousand of them must not take
/// half an hour.
struct Patience {
    unsigned uRepetitions = kInUseRepetitions;  ///< remaining
};

/// Calls `attempt`, a bool(DWORD& dwError), until it returns true. Repeats it while `patience` lasts and its code is
/// one of IsInUse(), with pauses of kHeldPauseMs, unless `mayPass`, a bool() called at the first such failure, returns
/// false because waiting cannot help. False with the last code in `*pdwError` (may be null). Sleep.
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

/// Likewise at most kInUseRepetitions times, about two seconds.
template <class Attempt, class MayPass>
[[nodiscard]] bool RetryWhileInUse(Attempt&& attempt, MayPass&& mayPass, DWORD* pdwError)
{
    Patience patience;
    return RetryWhileInUse(attempt, mayPass, patience, pdwError);
}

/// Likewise when every such failure may be temporary. The caller first checks for permanent obstacles (a read-only
/// file, a folder instead of a file).
template <class Attempt>
[[nodiscard]] bool RetryWhileInUse(Attempt&& attempt, DWORD* pdwError)
{
    return RetryWhileInUse(
        attempt, [] { return true; }, pdwError);
}

}  // namespace KzCommon::Storage
