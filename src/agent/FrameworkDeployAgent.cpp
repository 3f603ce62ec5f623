// The three phases of a deployment.
#include "agent/QorDeployAgent.h"

#include "agent/DeployPackages.h"
#include "agent/DeploymentLock.h"
#include "agent/DownloadPath.h"
#include "agent/FileOperations.h"
#include "agent/RunOnce.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"

using namespace KzCommon;

namespace {

// The packages that a deployment has found. Each group of bits is set as a whole.
constexpr BYTE kProgramPackage = 0xF0;
constexpr BYTE kResourcePackage = 0x0F;

}  // namespace

bool FrameworkDeployAgent::DoPreAction()
{
    const OperationTrace trace(L"FrameworkDeployAgent::DoPreAction()");
    m_run.paths.ReadLogFolders();
    m_run.paths.ReadProductFolders();
    Trace(kTraceStep, L"FrameworkDeployAgent::DoPreAction: tsUdidProduct=%s", m_run.paths.ProductDownloadDir().c_str());
    m_run.paths.KeepFile(DeploymentLock::FileIn(m_run.paths.InstallDir()));
    CreateDirBeforeReboot(m_run);
    return true;
}

bool FrameworkDeployAgent::DoDeploy()
{
    const OperationTrace trace(L"FrameworkDeployAgent::DoDeploy()");
    m_dwStatus = 0;
    m_run.paths.ReadProductFolders();
    m_tstrFrameworkFolder = m_run.paths.ComponentDir();
    Trace(kTraceInfo, L"Framework Folder : %s", m_tstrFrameworkFolder.c_str());

    BYTE bPackages = 0;
    Trace(kTraceStep, L"FrameworkDeployAgent::DoDeploy: tsUdidProduct=%s", m_run.paths.ProductDownloadDir().c_str());
    if (m_run.machine.HasFolder(m_run.paths.ProductDownloadDir())) {
        Trace(kTraceInfo, L"FrameworkDeployAgent::DoDeploy: Product directory is existed.");
        bPackages |= kProgramPackage;
    } else {
        ExplainMissing(L"DeployProgramPackage", m_run.paths.ProductDownloadDir(), ProductDownloadKey());
    }
    const std::wstring tstrResourceDir = m_run.paths.ReadResourceDownloadDir();
    Trace(kTraceStep, L"FrameworkDeployAgent::DoDeploy: tsUdidResource=%s", tstrResourceDir.c_str());
    if (m_run.machine.HasFolder(tstrResourceDir)) {
        Trace(kTraceInfo, L"FrameworkDeployAgent::DoDeploy: Resource directory is existed.");
        bPackages |= kResourcePackage;
    }

    if ((bPackages & kProgramPackage) && !DeployProgramPackage(m_run)) {
        Trace(kTraceError, L"CActionHandlerFrwk::DeployProgramPackage() failed");
    }
    if (!(bPackages & kResourcePackage)) {
        ExplainMissing(L"DeployResourceFiles", tstrResourceDir, ResourceDownloadKey());
    }
    if ((bPackages & kResourcePackage) && !DeployResourceFiles(m_run, tstrResourceDir)) {
        Trace(kTraceError, L"CActionHandlerFrwk::FrameworkDeployAgent::DeployResourceFiles() failed");
    }
    // An unknown folder may contain a package: the updater must try again, and the new name waits.
    const bool bFoldersKnown = !m_run.paths.ProductDownloadDir().empty() && !tstrResourceDir.empty();
    return bFoldersKnown || m_run.paths.InstallDir().empty();
}

void FrameworkDeployAgent::ExplainMissing(const wchar_t* szOperation, const std::wstring& tstrFolder,
                                          const DownloadKey& key)
{
    if (!m_run.machine.TakesExplanations()) return;
    m_run.machine.BeginOperation(szOperation);
    if (tstrFolder.empty()) return m_run.machine.ExplainNothing(L"UpdateInfo.ini cannot be read");
    std::wstring tstrReason = L"there is no folder " + tstrFolder;
    std::wstring tstrPath;
    const bool bNamed = m_run.machine.ReadIniValue(m_run.paths.UpdateInfoFile(), L"COMPONENT_LIST", key.szKey, L"",
                                                   tstrPath, nullptr) &&
                        !tstrPath.empty();
    if (bNamed && !NormalizeDownloadPath(tstrPath)) {
        tstrReason +=
            L", which is taken because " + (key.szKey + (L"=" + tstrPath)) + L" is no name below \"Component\\\"";
    }
    m_run.machine.ExplainNothing(tstrReason);
}

bool FrameworkDeployAgent::DoPostAction()
{
    const OperationTrace trace(L"FrameworkDeployAgent::DoPostAction()");
    RemoveFileAfterReboot(m_run);
    PostRunScript(m_run);
    WriteProgramDeployFlag();
    return true;
}

void FrameworkDeployAgent::WriteProgramDeployFlag()
{
    const OperationTrace trace(L"FrameworkDeployAgent::WriteProgramDeployFlag()");
    m_run.machine.BeginOperation(L"WriteProgramDeployFlag");
    const auto store = [&](const wchar_t* szName, DWORD dwValue) {
        const RegistryPlace place{.tstrKeyPath = L"SOFTWARE\\Kazmere\\KZVLT",
                                  .tstrName = szName,
                                  .dwView = Frwk::Utility::ProductRegistryView()};
        DWORD dwError = ERROR_SUCCESS;
        if (!m_run.machine.StoreValue(place, dwValue, &dwError)) {
            Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue() failed: 0x%08X", dwError);
        }
    };
    store(L"DoUpdateDeploy", 1);
    store(L"FrwkDeployTick", m_run.machine.TickCount());
}
