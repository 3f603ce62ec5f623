// Entry point of the patch agent.
//
//   /DeployFramework   deploys the downloaded update, then decides about the product's new name; 0, or -1 when the
//                      deployment reports failure
//   /ApplyNewName      finishes the rename after the restart; 0
//   any other text     decides about the new name only; 0
//   nothing            does nothing; 0
#include "agent/NewNameDecision.h"
#include "agent/PostRestartRename.h"
#include "agent/QorDeployAgent.h"
#include "agent/RestartReminder.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"

#include <memory>
#include <new>
#include <string_view>

using namespace KzCommon;

namespace {

constexpr int kSuccess = 0;
constexpr int kFailure = -1;

void OpenDebugLog()
{
    const Storage::Key settings(HKEY_LOCAL_MACHINE, L"Software\\Kazmere\\KZVLT\\1\\DebugLog");
    const DWORD dwSessionKind = eDetectSession;
    static_cast<void>(GlobalDebugLog().Open(L"Brevant", settings, L".\\", &dwSessionKind));
}

/// Runs one phase; memory that runs out ends the phase, not the run.
bool RunPhase(QorDeployAgent& agent, bool (QorDeployAgent::*pfnPhase)())
{
    bool bOk = false;
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::Guarded(&dwError, [&] { bOk = (agent.*pfnPhase)(); })) {
        Trace(kTraceError, L"*** A phase of the deployment ended early. [0x%08x]", dwError);
    }
    return bOk;
}

bool RunDeployment()
{
    const std::unique_ptr<QorDeployAgent> agent(new (std::nothrow) FrameworkDeployAgent);
    if (!agent) return true;
    static_cast<void>(RunPhase(*agent, &QorDeployAgent::DoPreAction));
    const bool bDeployed = RunPhase(*agent, &QorDeployAgent::DoDeploy);
    static_cast<void>(RunPhase(*agent, &QorDeployAgent::DoPostAction));
    return bDeployed;
}

void DecideAboutNewName()
{
    if (CheckIfNewProdNameApplied() || !NeedToApplyNewName()) return;
    if (!CanScheduleNewName()) return;
    // The mark comes first: the rename is scheduled at most once, even when its preparation fails.
    TagNewProdNameApplied();
    PreparePostUdActionForNewName();
    if (NeedToInformUser()) RemindToReboot();
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    // Nobody is there to close a box about a damaged library or a drive without a disk.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    OpenDebugLog();
    // Not used here, but a missing install folder stands at the head of the trace.
    static_cast<void>(Frwk::Utility::GetInstalledFolder());
    if (argc < 2) {
        Trace(kTraceInfo, L"Paramter is not right");
        Trace(kTraceInfo, L"***QorPatchTool.exe stop.");
        CloseGlobalDebugLog();
        return kSuccess;
    }
    const std::wstring_view tstrSwitch = argv[1];
    Trace(kTraceInfo, L"Paramter is %s", argv[1]);

    if (tstrSwitch == L"/ApplyNewName") {
        PostUdActionForNewName();
        return kSuccess;  // the trace closes itself at the end of the process
    }
    const bool bDeployed = tstrSwitch != L"/DeployFramework" || RunDeployment();
    Trace(kTraceInfo, L"***QorPatchTool.exe stop.");
    if (!bDeployed) {
        Trace(kTraceError, L"Patch Agent failed to perform update");
        CloseGlobalDebugLog();
        return kFailure;
    }
    DecideAboutNewName();
    CloseGlobalDebugLog();
    return kSuccess;
}
