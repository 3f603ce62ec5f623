// The three phases of a deployment.
#include "agent/QorDeployAgent.h"

#include "agent/DeployPackages.h"
#include "agent/DeploymentLock.h"
#include "agent/FileOperations.h"
#include "agent/RunOnce.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_Registry.h"

using namespace KzCommon;

namespace {

// Which packages a deployment has found; each group of bits is set as a whole.
constexpr BYTE kProgramPackage = 0xF0;
constexpr BYTE kResourcePackage = 0x0F;

}  // namespace

bool FrameworkDeployAgent::DoPreAction()
{
    const OperationTrace trace(L"FrameworkDeployAgent::DoPreAction()");
    m_pathValues.ReadLogFolders();
    m_pathValues.ReadProductFolders();
    Trace(kTraceStep, L"FrameworkDeployAgent::DoPreAction: tsUdidProduct=%s",
          m_pathValues.ProductDownloadDir().c_str());
    m_pathValues.KeepFile(DeploymentLock::FileIn(m_pathValues.InstallDir()));
    CreateDirBeforeReboot(m_pathValues);
    return true;
}

bool FrameworkDeployAgent::DoDeploy()
{
    const OperationTrace trace(L"FrameworkDeployAgent::DoDeploy()");
    m_dwStatus = 0;
    m_pathValues.ReadProductFolders();
    m_tstrFrameworkFolder = m_pathValues.ComponentDir();
    Trace(kTraceInfo, L"Framework Folder : %s", m_tstrFrameworkFolder.c_str());

    BYTE bPackages = 0;
    Trace(kTraceStep, L"FrameworkDeployAgent::DoDeploy: tsUdidProduct=%s", m_pathValues.ProductDownloadDir().c_str());
    if (Storage::Directory::IsExisted(m_pathValues.ProductDownloadDir())) {
        Trace(kTraceInfo, L"FrameworkDeployAgent::DoDeploy: Product directory is existed.");
        bPackages |= kProgramPackage;
    }
    const std::wstring tstrResourceDir = m_pathValues.ReadResourceDownloadDir();
    Trace(kTraceStep, L"FrameworkDeployAgent::DoDeploy: tsUdidResource=%s", tstrResourceDir.c_str());
    if (Storage::Directory::IsExisted(tstrResourceDir)) {
        Trace(kTraceInfo, L"FrameworkDeployAgent::DoDeploy: Resource directory is existed.");
        bPackages |= kResourcePackage;
    }

    if ((bPackages & kProgramPackage) && !DeployProgramPackage(m_pathValues)) {
        Trace(kTraceError, L"CActionHandlerFrwk::DeployProgramPackage() failed");
    }
    if ((bPackages & kResourcePackage) && !DeployResourceFiles(m_pathValues, tstrResourceDir)) {
        Trace(kTraceError, L"CActionHandlerFrwk::FrameworkDeployAgent::DeployResourceFiles() failed");
    }
    // A package whose folder cannot be looked up may be there: the updater is to try again, and the new name waits.
    const bool bFoldersKnown = !m_pathValues.ProductDownloadDir().empty() && !tstrResourceDir.empty();
    return bFoldersKnown || m_pathValues.InstallDir().empty();
}

bool FrameworkDeployAgent::DoPostAction()
{
    const OperationTrace trace(L"FrameworkDeployAgent::DoPostAction()");
    RemoveFileAfterReboot(m_pathValues);
    PostRunScript(m_pathValues);
    WriteProgramDeployFlag();
    return true;
}

void FrameworkDeployAgent::WriteProgramDeployFlag()
{
    const OperationTrace trace(L"FrameworkDeployAgent::WriteProgramDeployFlag()");
    const DWORD dwView = Frwk::Utility::ProductRegistryView();
    const auto store = [&](const wchar_t* szName, DWORD dwValue) {
        DWORD dwError = ERROR_SUCCESS;
        if (!Storage::Reg::StoreValue(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kazmere\\KZVLT", szName, dwValue, dwView,
                                      &dwError)) {
            Trace(kTraceError, L"KzCommon::Storage::Reg::StoreValue() failed: 0x%08X", dwError);
        }
    };
    store(L"DoUpdateDeploy", 1);
    store(L"FrwkDeployTick", ::GetTickCount());
}
