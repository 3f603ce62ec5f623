// Entry point of the patch agent.
//
//   /DeployFramework   deploys the downloaded update, then decides about the product's new name; returns 0, or -1 when
//                      the deployment fails, a Windows library is missing or another run does not end
//   /ApplyNewName      finishes the rename after the restart; returns 0
//   any other text     only decides about the new name; returns 0
//   no argument        does nothing; returns 0
#include "agent/DeployFramework.h"
#include "agent/DeploymentLock.h"
#include "agent/GuardedStep.h"
#include "agent/NewNameDecision.h"
#include "agent/PostRestartRename.h"
#include "common/Frwk_Utility.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"
#include "runtime/DelayLoad.h"

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

/// Whether every library that a run may call exists. A missing one would end the run at its first call, possibly in the
/// middle of a deployment.
bool HasLibraries()
{
    bool bComplete = false;
    RunGuarded(L"The loading of libraries", [&] {
        const char* szMissing = "";
        DWORD dwError = ERROR_SUCCESS;
        bComplete = LoadDelayedLibraries(szMissing, dwError);
        if (bComplete) return;
        Trace(kTraceError, L"*** %s is missing in Windows: nothing is changed. [0x%08x]",
              String::FromAnsi(szMissing).c_str(), dwError);
    });
    return bComplete;
}

/// False when another run is changing the installation.
bool TakeLock(const Machine& machine, DeploymentLock& lock)
{
    bool bTaken = true;  // an exception in the lock must not prevent the update
    RunGuarded(L"The lock of the installation",
               [&] { bTaken = lock.Take(Frwk::Utility::GetInstalledFolder(machine)); });
    return bTaken;
}

void ApplyNewName(Machine& machine)
{
    // Windows starts this command at a logon; no console window may stay open meanwhile.
    ::FreeConsole();
    if (HasLibraries()) RunGuarded(L"The rename", [&] { PostUdActionForNewName(machine); });
}

int CloseWith(int iExitCode)
{
    CloseGlobalDebugLog();
    return iExitCode;
}

}  // namespace

int wmain(int argc, wchar_t** argv)
{
    // Libraries that Windows libraries load by name come from the system folder, never from the program's.
    ::SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
    // An older Windows does not support this policy; KzComn_LinkRule.h checks every written path as well.
    static_cast<void>(Process::RefuseUsersJunctions(nullptr));
    // The agent runs unattended: no message box about a damaged library or an empty drive may wait for a click.
    ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    RunGuarded(L"The opening of the trace", &OpenDebugLog);
    // Only for the trace: the lookup reports a missing install folder at its beginning.
    WindowsMachine machine;
    RunGuarded(L"The look-up of the install folder",
               [&] { static_cast<void>(Frwk::Utility::GetInstalledFolder(machine)); });
    if (argc < 2) {
        Trace(kTraceInfo, L"Paramter is not right");
        Trace(kTraceInfo, L"***QorPatchTool.exe stop.");
        return CloseWith(kSuccess);
    }
    const std::wstring_view tstrSwitch = argv[1];
    Trace(kTraceInfo, L"Paramter is %s", argv[1]);

    if (tstrSwitch == L"/ApplyNewName") {
        ApplyNewName(machine);
        return kSuccess;  // the trace closes itself at the end of the process
    }
    DeploymentLock lock;
    const bool bMayChange = HasLibraries() && TakeLock(machine, lock);
    const bool bDeployed = tstrSwitch != L"/DeployFramework" || (bMayChange && DeployFramework(machine));
    Trace(kTraceInfo, L"***QorPatchTool.exe stop.");
    if (!bDeployed) {
        Trace(kTraceError, L"Patch Agent failed to perform update");
        return CloseWith(kFailure);
    }
    if (bMayChange) {
        RunGuarded(L"The decision about the new name", [&] { DecideAboutNewName(machine, [&] { lock.Release(); }); });
    }
    return CloseWith(kSuccess);
}
