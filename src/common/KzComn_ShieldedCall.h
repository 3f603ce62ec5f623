// Calls into a library without letting its faults end the program.
#pragma once

#include <windows.h>

namespace KzCommon::Library {

/// Calls `pfn` with up to three pointer arguments. True with its result in `dwResult`; false, with the exception's code
/// there, when it faults or throws an exception of any compiler. The library then keeps its memory and locks for ever,
/// so do not call or free it again. __C_specific_handler.
template <class... Arguments>
[[nodiscard]] bool CallShielded(DWORD& dwResult, DWORD(__stdcall* pfn)(Arguments*...),
                                Arguments*... arguments) noexcept;

}  // namespace KzCommon::Library

/// The assembler part: returns the procedure's result, or kShieldedFault and the exception's code.
extern "C" ULONGLONG KzCommonShieldedCall(const void* pfn, const void* p1, const void* p2, const void* p3) noexcept;

namespace KzCommon::Library {

inline constexpr ULONGLONG kShieldedFault = 1ULL << 32;

template <class... Arguments>
bool CallShielded(DWORD& dwResult, DWORD(__stdcall* pfn)(Arguments*...), Arguments*... arguments) noexcept
{
    static_assert(sizeof...(Arguments) >= 1 && sizeof...(Arguments) <= 3);
    const void* pArguments[3] = {arguments...};
    const ULONGLONG ullResult =
        KzCommonShieldedCall(reinterpret_cast<const void*>(pfn), pArguments[0], pArguments[1], pArguments[2]);
    dwResult = static_cast<DWORD>(ullResult);
    return !(ullResult & kShieldedFault);
}

}  // namespace KzCommon::Library
