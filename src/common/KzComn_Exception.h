// The exceptions of the common library. They carry a Win32 error code and the place that raised them, are created on
// the heap, thrown as pointers, and owned by whoever catches them.
#pragma once

#include <windows.h>

#include <memory>
#include <source_location>

namespace KzCommon::Exception {

/// Base of every exception of the common library.
class Base {
public:
    /// `szModule` must outlive the exception: a literal or a name out of std::source_location.
    Base(DWORD dwCode, const char* szModule, unsigned uLine) noexcept
        : m_dwCode(dwCode), m_szModule(szModule), m_uLine(uLine)
    {
    }
    Base(const Base&) = delete;
    Base& operator=(const Base&) = delete;
    virtual ~Base() = default;

    /// The Win32 error code.
    [[nodiscard]] DWORD ErrorCode() const noexcept { return m_dwCode; }
    /// Base name of the source file that raised it.
    [[nodiscard]] const char* Module() const noexcept { return m_szModule; }
    [[nodiscard]] unsigned Line() const noexcept { return m_uLine; }

private:
    DWORD m_dwCode;
    const char* m_szModule;
    unsigned m_uLine;
};

}  // namespace KzCommon::Exception

namespace KzCommon::Storage {

/// A storage operation (registry, INI file, XML file, file system) failed.
class Exception : public ::KzCommon::Exception::Base {
public:
    using ::KzCommon::Exception::Base::Base;
};

/// What a catcher takes ownership with, as its first line.
using CaughtException = std::unique_ptr<Exception>;

/// Reported for a failure that carries no code of its own.
inline constexpr DWORD kCodelessFailure = 0x800300FD;

/// Throws a new Exception with `dwCode` and the caller's place.
[[noreturn]] void Throw(DWORD dwCode, const std::source_location& where = std::source_location::current());

/// Runs `action` and turns an exception into a code. True when it returned; otherwise false, with the Win32 code of
/// the Exception, or kCodelessFailure for an exception of any other kind, in `*pdwError` (may be null; left alone on
/// success).
template <class Action>
[[nodiscard]] bool Guarded(DWORD* pdwError, Action&& action) noexcept
{
    DWORD dwCode = kCodelessFailure;
    try {
        action();
        return true;
    } catch (Exception* pException) {
        const CaughtException caught(pException);
        dwCode = caught->ErrorCode();
    } catch (...) {
        dwCode = kCodelessFailure;
    }
    if (pdwError) *pdwError = dwCode;
    return false;
}

}  // namespace KzCommon::Storage
