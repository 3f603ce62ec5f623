// The compiler's stack protection: its guard value, and the end of a process whose stack was overwritten.
//
// The compiler's own library asks a cryptographic provider for the value, and loading the provider takes longer than
// everything else that a start does. The C runtime has random numbers of the same quality at hand.
#define _CRT_RAND_S  // for rand_s
#include <windows.h>

#include <cstdint>
#include <cstdlib>

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

/// Runs before every other constructor; a function without a guard of its own, for it changes the value.
__attribute__((constructor(101), no_stack_protector)) void FillGuard() noexcept
{
    // The generator lives in a library that the C runtime would look for beside the program first.
    static_cast<void>(::LoadLibraryExW(L"cryptbase.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32));
    unsigned uLow = 0, uHigh = 0;
    // A machine without random numbers has a guard all the same, if not one that is hard to guess.
    if (::rand_s(&uLow) != 0 || ::rand_s(&uHigh) != 0) uLow = uHigh = 0xA5C35A96;
    // The lowest byte, the first in memory, is zero: no text that runs over a buffer can contain the value.
    __stack_chk_guard = ((static_cast<std::uintptr_t>(uHigh) << 32) | uLow) & ~std::uintptr_t{0xFF};
}

}  // namespace
