// The system's finest clock. QueryPerformanceCounter.
#pragma once

#include <windows.h>

namespace Bench {

[[nodiscard]] inline LONGLONG Now() noexcept
{
    LARGE_INTEGER liNow{};
    ::QueryPerformanceCounter(&liNow);
    return liNow.QuadPart;
}

[[nodiscard]] inline double Microseconds(LONGLONG llTicks) noexcept
{
    LARGE_INTEGER liFrequency{};
    ::QueryPerformanceFrequency(&liFrequency);
    return static_cast<double>(llTicks) * 1e6 / static_cast<double>(liFrequency.QuadPart);
}

}  // namespace Bench
