// The compiler's stack protection: its guard value, and the end of a process with an overwritten stack.
//
// The compiler's own library gets the value from a cryptographic provider, and loading that takes longer than the rest
// of the program start. The C runtime provides random numbers of the same quality.
#define _CRT_RAND_S  // for rand_s
#include <windows.h>

#include <cstdint>
#include <cstdlib>

extern "C" {

std::uintptr_t __stack_chk_guard = 0;

/// A function's frame was overwritten. No part of the process is reliable any more: no handler, no clean-up.
[[noreturn]] void __stack_chk_fail()
{
    constexpr unsigned kStackCookieCheckFailure = 2;
    __asm__ __volatile__("int {$}0x29" : : "c"(kStackCookieCheckFailure));
    __builtin_unreachable();
}

/// A checked copy would have exceeded its buffer.
[[gnu::noreturn]] void __chk_fail()
{
    __stack_chk_fail();
}

}  // extern "C"

namespace {

/// Runs before every other constructor. Has no guard of its own, because it changes the value.
__attribute__((constructor(101), no_stack_protector)) void FillGuard() noexcept
{
    // The C runtime would look for the generator's library beside the program first.
    static_cast<void>(::LoadLibraryExW(L"cryptbase.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
    unsigned uLow = 0, uHigh = 0;
    // A machine without random numbers gets a fixed guard, which is better than none.
    if (::rand_s(&uLow) != 0 || ::rand_s(&uHigh) != 0) uLow = uHigh = 0xA5C35A96;
    // The lowest byte, first in memory, is zero: no text that overflows a buffer can contain the value.
    __stack_chk_guard = ((static_cast<std::uintptr_t>(uHigh) << 32) | uLow) & ~std::uintptr_t{0xFF};
}

}  // namespace
