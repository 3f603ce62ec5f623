// The checking program's verbs against reading the files that they are about.
#pragma once

namespace Bench {

/// Prints the pairs "lint", "plan" and "verify" of an update with thousands of files of a usual size and the largest
/// instruction file. Leaves the update installed.
void MeasureChecks(unsigned cRounds);

}  // namespace Bench
