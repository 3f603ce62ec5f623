// A lock that all processes of the machine share.
#pragma once

#include "common/KzComn_Handle.h"

#include <string>

namespace KzDbg {

/// The lock that belongs to a path, which need not exist; paths are compared without regard to case. Taking it costs
/// more than writing a line, and most traces are alone with their file: those can do without. CreateMutexExW,
/// CreateFileMappingW.
class SharedLock {
public:
    explicit SharedLock(const std::wstring& tstrPath);
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;
    ~SharedLock();

    /// True when nobody else has a SharedLock of this path, false when in doubt. Whoever makes one after that waits for
    /// EndAlone, which is to follow at once.
    [[nodiscard]] bool BeginAlone() noexcept;
    void EndAlone() noexcept;

    /// Waits for the lock, but not for ever: a trace must not hold up what it traces. After a wait in vain, further
    /// calls do not wait at all until the lock is free again. False when the lock is not held then.
    /// WaitForSingleObject.
    [[nodiscard]] bool Acquire() noexcept;
    void Release() noexcept;

private:
    /// In memory that all users of the lock share.
    struct Users {
        volatile LONG lCount;
        volatile LONG lBusyAlone;
    };

    KzCommon::UniqueKernelHandle m_mutex;
    KzCommon::UniqueKernelHandle m_section;
    Users* m_pUsers = nullptr;
    DWORD m_dwPatience;
};

/// Holds a SharedLock, or has tried to, until the end of the scope.
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
