// Texts as a person reads them.
#pragma once

#include <string>

namespace Check {

/// One line of a terminal: a text of a file may hold line ends and what a terminal takes for a command.
[[nodiscard]] std::wstring OnOneLine(std::wstring tstrText);

/// "1 run", "2 runs".
[[nodiscard]] std::wstring Counted(std::size_t uCount, const wchar_t* szOne, const wchar_t* szMany);

}  // namespace Check
