#include "agent/DeployPackages.h"

#include "agent/ComponentFiles.h"
#include "agent/DeploySettings.h"
#include "agent/PackageLayout.h"

#include "common/KzComn_DebugLog.h"

using namespace KzCommon;
using namespace PackageLayout;

namespace {

/// The name of a step without class and parentheses.
std::wstring NameOf(const DeployStep& step)
{
    const std::wstring_view tstrName = step.name.Get();
    const std::size_t uName = tstrName.rfind(L':') + 1;
    return std::wstring(tstrName.substr(uName, tstrName.find(L'(') - uName));
}

void CarryOut(RunContext& run, const DeployStep& step, const BaseFolders& bases)
{
    const OperationTrace trace(step.name);
    if (step.bPreparesSettings && !PrepareSettings(run)) return;
    run.machine.BeginOperation(NameOf(step).c_str());
    for (const CopyRow& row : step.rows) {
        const std::wstring tstrSource = bases.FolderOf(row.source);
        const std::wstring tstrDestination = bases.FolderOf(row.destination);
        static_cast<void>(CopyDirectory(run, tstrSource, L"*.*", tstrDestination, row.eDepth == Depth::eWithSubfolders,
                                        row.eWhen == When::eAtRestart));
        if (row.trace) Trace(kTraceInfo, row.trace, tstrSource.c_str(), tstrDestination.c_str());
    }
}

}  // namespace

bool DeployProgramPackage(RunContext& run)
{
    const OperationTrace trace(L"FrameworkDeployAgent::DeployProgramPackage()");
    const BaseFolders bases(run.machine, {.tstrInstallDir = run.paths.InstallDir(),
                                          .tstrProductDownloadDir = run.paths.ProductDownloadDir(),
                                          .tstrProductDownloadPath = run.paths.ProductDownloadPath(),
                                          .tstrResourceDownloadDir = {}});
    for (const DeployStep& step : ProgramSteps()) CarryOut(run, step, bases);
    return true;
}

bool DeployResourceFiles(RunContext& run, const std::wstring& tstrDownloadDir)
{
    const BaseFolders bases(run.machine, {.tstrInstallDir = run.paths.InstallDir(),
                                          .tstrProductDownloadDir = {},
                                          .tstrProductDownloadPath = {},
                                          .tstrResourceDownloadDir = tstrDownloadDir});
    CarryOut(run, ResourceStep(), bases);
    return true;
}
