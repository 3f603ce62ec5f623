// The exceptions of the common library. They carry a Win32 error code and the source location of the throw, are created
// on the heap and thrown as pointers. The catch block owns them.
#pragma once

#include <windows.h>

#include <memory>
#include <source_location>

namespace KzCommon::Exception {

/// Base of every exception of the common library.
class Base {
public:
    /// `szModule` must outlive the exception: a literal or a name from std::source_location.
    Base(DWORD dwCode, const char* szModule, unsigned uLine) noexcept
        : m_dwCode(dwCode), m_szModule(szModule), m_uLine(uLine)
    {
    }
    Base(const Base&) = delete;
    Base& operator=(const Base&) = delete;
    virtual ~Base() = default;

    /// The Win32 error code.
    [[nodiscard]] DWORD ErrorCode() const noexcept { return m_dwCode; }
    /// Base name of the source file that threw it.
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

/// Takes ownership of a caught exception; the first line of a catch block.
using CaughtException = std::unique_ptr<Exception>;

/// The code for a failure without a code of its own.
inline constexpr DWORD kCodelessFailure = 0x800300FD;

/// Throws a new Exception with `dwCode` and the caller's source location.
[[noreturn]] void Throw(DWORD dwCode, const std::source_location& where = std::source_location::current());

/// Runs `action` and turns an exception into a code. True when it returned; otherwise false, with the Win32 code of the
/// Exception, or kCodelessFailure for any other exception, in `*pdwError` (may be null; unchanged on success).
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
