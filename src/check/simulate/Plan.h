// "plan": what a deployment would do on this machine, nothing of it done.
#pragma once

#include "check/simulate/ChangeLog.h"
#include "check/update/CommandLine.h"
#include "check/update/Folder.h"

#include <string>
#include <vector>

namespace Check {

/// A whole run.
struct Plan {
    Folder updateDir;     ///< where the update lies
    Folder installedDir;  ///< the installed product that it is for
    std::vector<PlanStep> steps;
    std::vector<std::size_t> unknownLines{};  ///< of "registry.reg" in the installed folder
    std::wstring tstrTrace{};                 ///< what the run would trace, when asked for
};

/// How a run is planned.
struct PlanOptions {
    bool bInstalledGiven = false;  ///< "registry.reg" in the installed folder says what the product's key holds
    bool bTrace = false;
};

class Update;

/// Carries the agent's run out on a machine in memory: this one, with the update laid over the product that is
/// installed in `installedDir`.
[[nodiscard]] Plan MakePlan(const Update& update, const Folder& installedDir, const PlanOptions& options = {});

/// The verb.
[[nodiscard]] int RunPlan(const Arguments& arguments, Output& output);

}  // namespace Check
