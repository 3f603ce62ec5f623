// What a deployment promised, as far as its trace tells.
#pragma once

#include "check/Destination.h"
#include "check/Promises.h"
#include "check/TraceReader.h"

#include <string>
#include <vector>

namespace Check {

/// The promises of one run. What is not known of them is in Promises::notCovered: the content of files that were moved
/// (but for the language's), what was copied at once out of a download folder that is gone, and what a run that was cut
/// off did after its last line.
[[nodiscard]] Promises PromisesOf(const TraceRun& run, const MachineFolders& folders);

/// Reads the trace files of this machine and takes the promises of the newest deployment, whose time is `tstrTime`.
/// False when there is none in them. Rolled files that are missing in the middle of it are in Promises::notCovered,
/// too.
[[nodiscard]] bool PromisesOfNewestRun(const MachineFolders& folders, Promises& promises, std::wstring& tstrTime);

}  // namespace Check
