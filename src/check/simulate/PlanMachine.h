// The machine that a run of an update is planned on.
#pragma once

#include "check/simulate/SimulatedMachine.h"
#include "check/update/Folder.h"

namespace Check {

/// Where a run is planned.
struct PlanFolders {
    Folder updateDir;     ///< the update, as the update client lays it over the installed product
    Folder installedDir;  ///< the installed product
    /// The file "registry.reg" in the installed folder, where there is one, says what the product's key holds.
    bool bTakeRegistryFile = false;
};

/// Lays the update over the installed folder, leftovers of earlier attempts there included, and makes that folder the
/// one of the installed product and of the running program. Returns the numbers of the lines of "registry.reg" that are
/// not known.
std::vector<std::size_t> PrepareForPlan(SimulatedMachine& machine, const PlanFolders& folders);

/// What a run would do.
struct PlannedRun {
    std::vector<PlanStep> steps;
    std::vector<std::size_t> unknownLines;  ///< of "registry.reg"
    std::wstring tstrTrace;                 ///< the lines that the run would trace, every level
};

/// Carries `run` out on a machine in memory over `base`, restarts it, and says what came of it. With `bTrace` the
/// process's trace goes there meanwhile.
[[nodiscard]] PlannedRun PlanRun(const KzCommon::Machine& base, const PlanFolders& folders,
                                 const std::function<void(KzCommon::Machine&)>& run, bool bTrace);

}  // namespace Check
