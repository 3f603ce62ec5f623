// "undo": an update that restores what another one replaces or removes.
#pragma once

#include "check/update/CommandLine.h"

namespace Check {

/// Runs the verb. Carries the update out in memory, writes the update that undoes it, carries that out on the same
/// machine, and lists every difference from the state before.
[[nodiscard]] int RunUndo(const Arguments& arguments, Output& output);

}  // namespace Check
