// Allows one run at a time to change an installation: two runs would take each other's unfinished files as complete.
#pragma once

#include "common/KzComn_Handle.h"

#include <windows.h>

#include <string>

/// How long a run waits for another run, in milliseconds.
inline constexpr DWORD kLockWaitMs = 3 * 60 * 1000;

/// Keeps a file in the install folder open without sharing while it owns the lock. Only users with write access to that
/// folder can take the lock. Windows deletes the file when the process ends, even if it is killed.
class DeploymentLock {
public:
    /// The file's path; `tstrInstallDir` with trailing backslash.
    [[nodiscard]] static std::wstring FileIn(const std::wstring& tstrInstallDir);

    /// Takes the lock. False, with a trace line, when another run owns it for all of `dwWaitMs` milliseconds. True,
    /// with a trace line, when the lock fails for another reason: the run continues without it. Also true without an
    /// install folder, where there is nothing to change. CreateFileW.
    [[nodiscard]] bool Take(const std::wstring& tstrInstallDir, DWORD dwWaitMs = kLockWaitMs);

    void Release() noexcept { m_file.Reset(); }

private:
    KzCommon::UniqueFile m_file;
};
