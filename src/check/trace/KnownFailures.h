// Explains lines of the failure level: code, page to read, and whether the line is a failure at all.
#pragma once

#include "check/trace/TraceReader.h"

#include <optional>

namespace Check {

/// The code at the end of a message, in any form that the agent uses.
[[nodiscard]] std::optional<DWORD> CodeOf(std::wstring_view tstrMessage);

/// Why a line that looks like a failure is harmless; null for a real failure.
[[nodiscard]] const wchar_t* WhyHarmless(const TraceLine& line);

/// The page about the lines of a source file.
[[nodiscard]] const wchar_t* PageOf(std::wstring_view tstrSource);

}  // namespace Check
