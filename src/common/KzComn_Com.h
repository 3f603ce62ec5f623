// COM: the owner of objects, and the thread's membership in COM.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <wrl/client.h>

namespace KzCommon::Com {

/// Owner of one reference to a COM object.
using Microsoft::WRL::ComPtr;

/// Initialises COM on this thread, apartment-threaded, until the guard ends. Guards may nest; every COM object must be
/// released before the last guard. If the thread already uses the other threading model, COM works there without
/// change. CoInitializeEx, CoUninitialize.
class Apartment {
public:
    Apartment() noexcept : m_hr(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;
    ~Apartment()
    {
        if (SUCCEEDED(m_hr)) ::CoUninitialize();
    }

    /// The result of CoInitializeEx.
    [[nodiscard]] HRESULT Result() const noexcept { return m_hr; }

private:
    HRESULT m_hr;
};

}  // namespace KzCommon::Com
