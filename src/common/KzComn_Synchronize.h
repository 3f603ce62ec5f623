// Locks.
#pragma once

#include <windows.h>

namespace KzCommon::Synchronize {

/// A CRITICAL_SECTION with the standard's Lockable interface, for std::lock_guard.
class CriticalSection {
public:
    CriticalSection() noexcept { ::InitializeCriticalSection(&m_section); }
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;
    ~CriticalSection() { ::DeleteCriticalSection(&m_section); }

    void lock() noexcept { ::EnterCriticalSection(&m_section); }
    void unlock() noexcept { ::LeaveCriticalSection(&m_section); }
    [[nodiscard]] bool try_lock() noexcept { return ::TryEnterCriticalSection(&m_section) != FALSE; }

private:
    CRITICAL_SECTION m_section{};
};

}  // namespace KzCommon::Synchronize
