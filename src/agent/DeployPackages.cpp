#include "agent/DeployPackages.h"

#include "agent/ComponentFiles.h"
#include "agent/DeploySettings.h"
#include "agent/PackageLayout.h"

#include "common/KzComn_DebugLog.h"

using namespace KzCommon;
using namespace PackageLayout;

namespace {

void CarryOut(PathValues& pathValues, const DeployStep& step, const BaseFolders& bases)
{
    const OperationTrace trace(step.name);
    if (step.bPreparesSettings && !PrepareSettings(pathValues)) return;
    for (const CopyRow& row : step.rows) {
        const std::wstring tstrSource = bases.FolderOf(row.source);
        const std::wstring tstrDestination = bases.FolderOf(row.destination);
        static_cast<void>(CopyDirectory(pathValues, tstrSource, L"*.*", tstrDestination,
                                        row.eDepth == Depth::eWithSubfolders, row.eWhen == When::eAtRestart));
        if (row.trace) Trace(kTraceInfo, row.trace, tstrSource.c_str(), tstrDestination.c_str());
    }
}

}  // namespace

bool DeployProgramPackage(PathValues& pathValues)
{
    const OperationTrace trace(L"FrameworkDeployAgent::DeployProgramPackage()");
    const BaseFolders bases({.tstrInstallDir = pathValues.InstallDir(),
                             .tstrProductDownloadDir = pathValues.ProductDownloadDir(),
                             .tstrProductDownloadPath = pathValues.ProductDownloadPath(),
                             .tstrResourceDownloadDir = {}});
    for (const DeployStep& step : ProgramSteps()) CarryOut(pathValues, step, bases);
    return true;
}

bool DeployResourceFiles(PathValues& pathValues, const std::wstring& tstrDownloadDir)
{
    const BaseFolders bases({.tstrInstallDir = pathValues.InstallDir(),
                             .tstrProductDownloadDir = {},
                             .tstrProductDownloadPath = {},
                             .tstrResourceDownloadDir = tstrDownloadDir});
    CarryOut(pathValues, ResourceStep(), bases);
    return true;
}
