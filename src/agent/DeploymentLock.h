// One run at a time changes an installation: two at once would take each other's half-made files for finished ones.
#pragma once

#include "common/KzComn_Handle.h"

#include <windows.h>

#include <string>

/// How long a run waits for another one, in milliseconds.
inline constexpr DWORD kLockWaitMs = 3 * 60 * 1000;

/// Has a file in the install folder open, without sharing it, as long as it holds the lock. Only users who may write to
/// that folder can take the lock. Windows deletes the file when the process ends, also when it is killed.
class DeploymentLock {
public:
    /// The file's path; `tstrInstallDir` with trailing backslash.
    [[nodiscard]] static std::wstring FileIn(const std::wstring& tstrInstallDir);

    /// Takes the lock. False, with a trace line, when another run has it all the time of `dwWaitMs` milliseconds. A
    /// lock that cannot be taken for another reason is traced, and the run goes on without it: true. So does one
    /// without an install folder, which has nothing to change there. CreateFileW.
    [[nodiscard]] bool Take(const std::wstring& tstrInstallDir, DWORD dwWaitMs = kLockWaitMs);

    void Release() noexcept { m_file.Reset(); }

private:
    KzCommon::UniqueFile m_file;
};
