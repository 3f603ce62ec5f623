// A lock shared by all processes of the machine.
#pragma once

#include "common/KzComn_Handle.h"

#include <string>

namespace KzDbg {

/// The lock for a path (case-insensitive), which need not exist. Taking it takes longer than writing a line, and most
/// traces are the only user of their file: those can skip it. CreateMutexExW, CreateFileMappingW.
class SharedLock {
public:
    explicit SharedLock(const std::wstring& tstrPath);
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;
    ~SharedLock();

    /// True when no other SharedLock of this path exists, false when in doubt. A SharedLock created afterwards waits
    /// for EndAlone, which must follow at once.
    [[nodiscard]] bool BeginAlone() noexcept;
    void EndAlone() noexcept;

    /// Waits for the lock for a limited time, because a trace must not block its program. After a timeout, further
    /// calls do not wait until the lock is free again. False when the lock was not taken. WaitForSingleObject.
    [[nodiscard]] bool Acquire() noexcept;
    void Release() noexcept;

private:
    /// In memory shared by all users of the lock.
    struct Users {
        volatile LONG lCount;
        volatile LONG lBusyAlone;
    };

    KzCommon::UniqueKernelHandle m_mutex;
    KzCommon::UniqueKernelHandle m_section;
    Users* m_pUsers = nullptr;
    DWORD m_dwPatience;
};

/// Takes a SharedLock, or tries to, until the end of the scope.
class SharedLockHold {
public:
    explicit SharedLockHold(SharedLock& lock) noexcept : m_lock(lock), m_bHeld(lock.Acquire()) {}
    SharedLockHold(const SharedLockHold&) = delete;
    SharedLockHold& operator=(const SharedLockHold&) = delete;
    ~SharedLockHold()
    {
        if (m_bHeld) m_lock.Release();
    }
    [[nodiscard]] bool IsHeld() const noexcept { return m_bHeld; }

private:
    SharedLock& m_lock;
    bool m_bHeld;
};

}  // namespace KzDbg
