// The compiler's stack protection: its guard value, and the end of a process whose stack was overwritten.
//
// The compiler's own library asks a cryptographic provider for the value, and loading the provider takes longer than
// everything else that a start does. Here it comes from the processor's random numbers, mixed with what differs from
// start to start for a processor that has none.
#include <windows.h>

#include <cpuid.h>

#include <cstdint>

extern "C" {

std::uintptr_t __stack_chk_guard = 0;

/// A function found its frame overwritten. Nothing of the process can be trusted any more: no handler, no clean-up.
[[noreturn]] void __stack_chk_fail()
{
    constexpr unsigned kStackCookieCheckFailure = 2;
    __asm__ __volatile__("int {$}0x29" : : "c"(kStackCookieCheckFailure));
    __builtin_unreachable();
}

/// A checked copy would have run past the end of its buffer.
[[gnu::noreturn]] void __chk_fail()
{
    __stack_chk_fail();
}

}  // extern "C"

namespace {

/// A random number of the processor; 0 when it has none.
__attribute__((target("rdrnd"), no_stack_protector)) std::uint64_t ProcessorRandom() noexcept
{
    unsigned uEax = 0, uEbx = 0, uEcx = 0, uEdx = 0;
    unsigned long long ullRandom = 0;
    if (!__get_cpuid(1, &uEax, &uEbx, &uEcx, &uEdx) || !(uEcx & bit_RDRND)) return 0;
    return __builtin_ia32_rdrand64_step(&ullRandom) ? ullRandom : 0;
}

/// Runs before every other constructor; a function without a guard of its own, for it changes the value.
__attribute__((constructor(101), no_stack_protector)) void MixGuard() noexcept
{
    FILETIME ftNow{};
    LARGE_INTEGER liCounter{};
    ::GetSystemTimeAsFileTime(&ftNow);
    ::QueryPerformanceCounter(&liCounter);
    std::uint64_t ullMix = (static_cast<std::uint64_t>(ftNow.dwHighDateTime) << 32) | ftNow.dwLowDateTime;
    const std::uint64_t kParts[] = {
        ProcessorRandom(),
        static_cast<std::uint64_t>(liCounter.QuadPart),
        (static_cast<std::uint64_t>(::GetCurrentProcessId()) << 32) | ::GetCurrentThreadId(),
        reinterpret_cast<std::uintptr_t>(&ftNow),     // the stack's random place
        reinterpret_cast<std::uintptr_t>(&MixGuard),  // the image's
        ::GetTickCount64(),
    };
    for (const std::uint64_t ullPart : kParts) {
        ullMix = (ullMix ^ ullPart) * 0x9E3779B97F4A7C15;
        ullMix ^= ullMix >> 29;
    }
    // The lowest byte, the first in memory, is zero: no text that runs over a buffer can contain the value.
    __stack_chk_guard = ullMix & ~std::uint64_t{0xFF};
}

}  // namespace
