// Texts for display.
#pragma once

#include <string>

namespace Check {

/// The text on one line of a terminal, without line ends and terminal commands from a file.
[[nodiscard]] std::wstring OnOneLine(std::wstring tstrText);

/// "1 run", "2 runs".
[[nodiscard]] std::wstring Counted(std::size_t uCount, const wchar_t* szOne, const wchar_t* szMany);

}  // namespace Check
