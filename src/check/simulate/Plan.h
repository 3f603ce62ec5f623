// "plan": shows the effects of a deployment on this machine without changing anything.
#pragma once

#include "check/simulate/ChangeLog.h"
#include "check/simulate/LostSettings.h"
#include "check/update/CommandLine.h"
#include "check/update/Folder.h"

#include <string>
#include <vector>

namespace Check {

/// A complete run.
struct Plan {
    Folder updateDir;     ///< the folder of the update
    Folder installedDir;  ///< the installed product for the update
    std::vector<PlanStep> steps;
    std::vector<LostSetting> lost{};          ///< the user's settings that are not carried over
    std::vector<std::size_t> unknownLines{};  ///< in "registry.reg" in the installed folder
    std::wstring tstrTrace{};                 ///< the trace lines of the run, if requested
    bool bRegistered = true;                  ///< the registry, or "registry.reg", knows the product in its folder
};

/// Options for planning a run.
struct PlanOptions {
    bool bInstalledGiven = false;  ///< "registry.reg" in the installed folder defines the product's key
    bool bTrace = false;
    std::wstring tstrLanguage{};  ///< of the installed product; empty: the one that the registry names
};

class Update;

/// Carries out the agent's run on a machine in memory: this machine, with the update copied over the product in
/// `installedDir`.
[[nodiscard]] Plan MakePlan(const Update& update, const Folder& installedDir, const PlanOptions& options = {});

/// Opens the update of a verb's first operand, finds the installed product, and plans. False, with an error line, when
/// one of them is missing or unreadable.
[[nodiscard]] bool OpenPlan(const Arguments& arguments, Update& update, Plan& plan, Output& output);

/// Runs the verb.
[[nodiscard]] int RunPlan(const Arguments& arguments, Output& output);

}  // namespace Check
