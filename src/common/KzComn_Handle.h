// Owners of system handles. Every handle that the program opens is closed by one of these destructors. Has no other
// dependencies, because the trace library uses it as well.
#pragma once

#include <windows.h>

#include <utility>

namespace KzCommon {

/// Owner of one handle. `Traits` defines the handle's type, its empty value and the call that closes it:
///     struct Traits { using Handle = HKEY; static Handle Empty() noexcept; static void Release(Handle) noexcept; };
template <class Traits>
class UniqueHandle {
public:
    using Handle = typename Traits::Handle;

    UniqueHandle() noexcept = default;
    explicit UniqueHandle(Handle handle) noexcept : m_handle(handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(std::exchange(other.m_handle, Traits::Empty())) {}
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    UniqueHandle& operator=(UniqueHandle&& other) noexcept
    {
        if (this != &other) Reset(std::exchange(other.m_handle, Traits::Empty()));
        return *this;
    }
    ~UniqueHandle() { Reset(); }

    [[nodiscard]] Handle Get() const noexcept { return m_handle; }
    [[nodiscard]] bool IsValid() const noexcept { return m_handle != Traits::Empty(); }
    explicit operator bool() const noexcept { return IsValid(); }

    /// Closes the current handle, then takes `handle`. Keeps the last error, because a handle is often closed after a
    /// failure.
    void Reset(Handle handle = Traits::Empty()) noexcept
    {
        const Handle old = std::exchange(m_handle, handle);
        if (old == Traits::Empty() || old == handle) return;
        const DWORD dwLastError = ::GetLastError();
        Traits::Release(old);
        ::SetLastError(dwLastError);
    }

    /// Gives up ownership of the handle; the caller must close it.
    [[nodiscard]] Handle Detach() noexcept { return std::exchange(m_handle, Traits::Empty()); }

    /// Closes the current handle and returns the address for a call that stores a new handle.
    [[nodiscard]] Handle* Receive() noexcept
    {
        Reset();
        return &m_handle;
    }

private:
    Handle m_handle = Traits::Empty();
};

/// Kernel objects whose empty value is null (process and thread tokens, events).
struct KernelHandleTraits {
    using Handle = HANDLE;
    static Handle Empty() noexcept { return nullptr; }
    static void Release(Handle handle) noexcept { ::CloseHandle(handle); }
};

/// Files, whose empty value is INVALID_HANDLE_VALUE.
struct FileHandleTraits {
    using Handle = HANDLE;
    static Handle Empty() noexcept { return INVALID_HANDLE_VALUE; }
    static void Release(Handle handle) noexcept { ::CloseHandle(handle); }
};

/// Searches of FindFirstFileW.
struct FindHandleTraits {
    using Handle = HANDLE;
    static Handle Empty() noexcept { return INVALID_HANDLE_VALUE; }
    static void Release(Handle handle) noexcept { ::FindClose(handle); }
};

/// Open registry keys.
struct RegistryKeyTraits {
    using Handle = HKEY;
    static Handle Empty() noexcept { return nullptr; }
    static void Release(Handle handle) noexcept { ::RegCloseKey(handle); }
};

/// Modules loaded with LoadLibraryExW.
struct ModuleTraits {
    using Handle = HMODULE;
    static Handle Empty() noexcept { return nullptr; }
    static void Release(Handle handle) noexcept { ::FreeLibrary(handle); }
};

using UniqueKernelHandle = UniqueHandle<KernelHandleTraits>;
using UniqueFile = UniqueHandle<FileHandleTraits>;
using UniqueFind = UniqueHandle<FindHandleTraits>;
using UniqueRegistryKey = UniqueHandle<RegistryKeyTraits>;
using UniqueModule = UniqueHandle<ModuleTraits>;

}  // namespace KzCommon
