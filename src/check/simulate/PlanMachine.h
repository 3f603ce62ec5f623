// The machine for planning an update's run.
#pragma once

#include "check/simulate/LostSettings.h"
#include "check/simulate/SimulatedMachine.h"
#include "check/update/Folder.h"

namespace Check {

/// In the installed folder: what the product's registry key holds.
inline constexpr wchar_t kRegistryFile[] = L"registry.reg";
/// There, too: files that the product has elsewhere on drive C:.
inline constexpr wchar_t kOutsideFolder[] = L"drive_c";

/// The folders for planning a run.
struct PlanFolders {
    Folder updateDir;     ///< the update, to be copied over the installed product
    Folder installedDir;  ///< the installed product
    /// The installed folder is a copy: its "registry.reg", if any, defines the product's key, and its "drive_c" has the
    /// product's files that are elsewhere on drive C:.
    bool bCopy = false;
    std::wstring tstrLanguage{};  ///< of the installed product; empty: the one that the registry names
};

/// Copies the update over the installed folder, keeping leftovers of earlier attempts there, and makes that folder the
/// folder of the installed product and of the running program. Returns the numbers of the unknown lines of
/// "registry.reg".
std::vector<std::size_t> PrepareForPlan(SimulatedMachine& machine, const PlanFolders& folders);

/// Runs the agent as for "/DeployFramework", without its lock.
void RunAgent(KzCommon::Machine& machine);

/// The effects of a run.
struct PlannedRun {
    std::vector<PlanStep> steps;
    std::vector<std::size_t> unknownLines;  ///< in "registry.reg"
    std::vector<LostSetting> lost;          ///< the user's settings that are not carried over
    std::wstring tstrTrace;                 ///< the trace lines of the run at every level
};

/// Carries out `run` on a machine in memory over `base`, restarts it and returns the effects. With `bTrace` the
/// process's trace goes to `tstrTrace` meanwhile.
[[nodiscard]] PlannedRun PlanRun(const KzCommon::Machine& base, const PlanFolders& folders,
                                 const std::function<void(KzCommon::Machine&)>& run, bool bTrace);

}  // namespace Check
