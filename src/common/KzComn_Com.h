// COM: the owner of objects, and the thread's membership in COM.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <wrl/client.h>

namespace KzCommon::Com {

/// Owner of one reference to a COM object.
using Microsoft::WRL::ComPtr;

/// Makes COM usable on this thread, apartment-threaded, until the guard ends. Guards nest, and every COM object must be
/// gone before the last one. A thread that another component initialised for the other threading model stays as it is:
/// COM works there all the same. CoInitializeEx, CoUninitialize.
class Apartment {
public:
    Apartment() noexcept : m_hr(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;
    ~Apartment()
    {
        if (SUCCEEDED(m_hr)) ::CoUninitialize();
    }

    /// What CoInitializeEx answered.
    [[nodiscard]] HRESULT Result() const noexcept { return m_hr; }

private:
    HRESULT m_hr;
};

}  // namespace KzCommon::Com
