// What a line of the failure level means: its code, the page to read, and whether it is a failure at all.
#pragma once

#include "check/trace/TraceReader.h"

#include <optional>

namespace Check {

/// The code that a message ends with, in whichever of the agent's ways it is written.
[[nodiscard]] std::optional<DWORD> CodeOf(std::wstring_view tstrMessage);

/// Why a line that looks like a failure is none; null for a real one.
[[nodiscard]] const wchar_t* WhyHarmless(const TraceLine& line);

/// Where to read about the lines of a source file.
[[nodiscard]] const wchar_t* PageOf(std::wstring_view tstrSource);

}  // namespace Check
