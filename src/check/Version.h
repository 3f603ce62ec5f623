// The version of the running program.
#pragma once

#include <string>

namespace Check {

/// The file version out of the running program's version resource, "1.9.1112.0"; "0.0.0.0" for a program that has none.
/// FindResourceW.
[[nodiscard]] std::wstring ProgramVersion();

}  // namespace Check
