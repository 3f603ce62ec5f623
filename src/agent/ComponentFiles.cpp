// The component files: which folder of a downloaded package goes to which folder of the installation, and how.
#include "agent/QorDeployAgent.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_Process.h"
#include "common/KzComn_Retry.h"
#include "common/KzComn_String.h"

#include <array>
#include <cwchar>
#include <iterator>
#include <utility>
#include <vector>

using namespace KzCommon;

namespace {

/// The nine steps of the program package, in their order, and the step of the resource package.
enum DeployStep {
    eDeployFrameworkFiles,
    eDeployDriverFiles,
    eDeployEngineFiles,
    eDeployPatternFiles,
    eDeploy7ZipFiles,
    eDeployBrowserFiles,
    eDeployUIFiles,
    eDeployTaskFiles,
    eDeploySettings,
    eDeployResourceFiles,
    eDeployStepCount
};

struct StepRow {
    DeployStep eStep;
    OperationName name;
    bool (FrameworkDeployAgent::*pfnAfterCopies)() = nullptr;  // what the step does besides copying
};

constexpr StepRow kSteps[] = {
    {eDeployFrameworkFiles, L"FrameworkDeployAgent::DeployFrameworkFiles()"},
    {eDeployDriverFiles, L"FrameworkDeployAgent::DeployDriverFiles()"},
    {eDeployEngineFiles, L"FrameworkDeployAgent::DeployEngineFiles()"},
    {eDeployPatternFiles, L"FrameworkDeployAgent::DeployPatternFiles()"},
    {eDeploy7ZipFiles, L"FrameworkDeployAgent::Deploy7ZipFiles()"},
    {eDeployBrowserFiles, L"FrameworkDeployAgent::DeployBrowserFiles()"},
    {eDeployUIFiles, L"FrameworkDeployAgent::DeployUIFiles()"},
    {eDeployTaskFiles, L"FrameworkDeployAgent::DeployTaskFiles()"},
    {eDeploySettings, L"FrameworkDeployAgent::DeploySettings()", &FrameworkDeployAgent::DeploySettings},
    {eDeployResourceFiles, L"FrameworkDeployAgent::DeployResourceFiles()"},
};
static_assert(std::size(kSteps) == eDeployStepCount);

/// Where the folders of a row begin.
enum Base { ePackage, eProduct, eShare, eResource, eInstall, eAppData, eSystemDrive, eBaseCount };

struct CopyRow {
    DeployStep eStep;
    Base eSource;
    const wchar_t* szSource;  // below the base, without trailing backslash
    Base eDestination;
    const wchar_t* szDestination;
    bool bRecurse;
    bool bAfterReboot;
    TraceFormat<const wchar_t*, const wchar_t*>
        trace;  // some name another step than their own: that is how support knows them
};

constexpr CopyRow kCopies[] = {
    // clang-format off
    {eDeployFrameworkFiles, ePackage, L"",                   eInstall,     L"",                   false, true,
     L"FrameworkDeployAgent::DeployFrameworkFiles(tsSrcFrameworkFolder[%s], tsDstFrameworkFolder[%s])"},
    {eDeployDriverFiles,    ePackage, L"Driver",             eInstall,     L"Driver",             false, false, nullptr},
    {eDeployDriverFiles,    ePackage, L"Driver",             eSystemDrive, L"",                   false, false, nullptr},
    {eDeployEngineFiles,    eProduct, L"Engine\\Preload",    eAppData,     L"Kazmere\\KZVLT\\Engine\\Preload", false, true,
     L"FrameworkDeployAgent::DeployEngineFiles(tstrPreLoadEngineSourceDir[%s], tstrInstallPreLoadEngine[%s])"},
    {eDeployEngineFiles,    eShare,   L"Engine",             eInstall,     L"",                   false, true,
     L"FrameworkDeployAgent::DeployPatternFiles(tstrEngineSourceDir[%s], tstrInstallEngine[%s])"},
    {eDeployPatternFiles,   eShare,   L"Patterns",           eInstall,     L"Patterns",           false, true,
     L"FrameworkDeployAgent::DeployPatternFiles(tstrPatternSourceDir[%s], tstrInstallPattern[%s])"},
    {eDeploy7ZipFiles,      eShare,   L"7-Zip",              eInstall,     L"",                   true,  true,
     L"FrameworkDeployAgent::Deploy7ZipFiles(tstr7ZipSourceDir[%s], tstrInstall7Zip[%s])"},
    {eDeployBrowserFiles,   eShare,   L"QorFirefoxExt",      eInstall,     L"QorFirefoxExt",      true,  true,
     L"FrameworkDeployAgent::DeployBrowserFiles(tstrFirefoxExtSourceDir[%s], tstrInstallFirefoxExt[%s])"},
    {eDeployBrowserFiles,   eShare,   L"QorNativeMessaging", eInstall,     L"QorNativeMessaging", false, true,
     L"CDeployComponentsAction::DeployBrowserFiles(tstrNativeMsgSourceDir[%s], tstrInstallNativeMsg[%s])"},
    {eDeployBrowserFiles,   eShare,   L"QorIEExt",           eInstall,     L"",                   false, true,
     L"CDeployComponentsAction::DeployBrowserFiles(tstrIEExtSourceDir[%s], tstrInstallIEExt[%s])"},
    {eDeployUIFiles,        eShare,   L"UI",                 eInstall,     L"",                   false, true,  nullptr},
    {eDeployUIFiles,        eShare,   L"Resource",           eInstall,     L"Resource",           true,  true,  nullptr},
    {eDeployTaskFiles,      eShare,   L"Task",               eInstall,     L"Task",               true,  true,  nullptr},
    {eDeployResourceFiles,  eResource, L"",                  eInstall,     L"Resource",           true,  true,
     L"CDeployComponentsAction::DeployBrowserFiles(tsDownload[%s], tsDst[%s])"},
    // clang-format on
};

constexpr int kStageNames = 100;

/// The root of the drive that Windows lies on; empty when the system folder is not known.
std::wstring SystemDriveRoot()
{
    const std::wstring tstrSystem = Process::SystemFolder();
    if (tstrSystem.empty()) return {};
    String::PathParts parts;
    const int iError = String::SplitPath(tstrSystem, parts);
    if (iError != 0 || !parts.szDrive[0]) {
        Trace(kTraceError, L"Cannot retrieve system drive letter: %d", iError);
        return L"C:\\";
    }
    return String::EnsureBackslash(parts.szDrive);
}

using BaseFolders = std::array<std::wstring, eBaseCount>;

BaseFolders ResolveBases(const PathValues& pathValues, const std::wstring& tstrResourceDir)
{
    const std::wstring& tstrProduct = pathValues.ProductDownloadDir();
    // The updater lays the package out with the component's name once more below the platform's folder.
    const std::wstring tstrPlatform = String::FolderBelow(tstrProduct, Process::Is64BitWindows() ? L"64bit" : L"32bit");
    BaseFolders bases;
    bases[ePackage] = String::FolderBelow(tstrPlatform, pathValues.ProductDownloadPath());
    bases[eProduct] = tstrProduct;
    bases[eShare] = String::FolderBelow(tstrProduct, L"Share");
    bases[eResource] = tstrResourceDir;
    bases[eInstall] = pathValues.InstallDir();
    bases[eAppData] = Process::CommonAppDataFolder();
    bases[eSystemDrive] = SystemDriveRoot();
    return bases;
}

/// The drive of a path, "C:"; false, with a trace line, when it cannot be split off.
bool DriveOf(const std::wstring& tstrPath, std::wstring& tstrDrive)
{
    wchar_t szDrive[_MAX_DRIVE] = {};
    const int iError = ::_wsplitpath_s(tstrPath.c_str(), szDrive, _MAX_DRIVE, nullptr, 0, nullptr, 0, nullptr, 0);
    if (iError != 0) {
        Trace(kTraceError, L"::_tsplitpath_s(%s) failed: %d", tstrPath.c_str(), iError);
        return false;
    }
    tstrDrive = szDrive;
    return true;
}

bool IsSameDrive(const std::wstring& tstrLeft, const std::wstring& tstrRight)
{
    std::wstring tstrLeftDrive;
    std::wstring tstrRightDrive;
    if (!DriveOf(tstrLeft, tstrLeftDrive) || !DriveOf(tstrRight, tstrRightDrive)) return true;
    return String::EqualsNoCase(tstrLeftDrive, tstrRightDrive);
}

/// A delayed move does not cross volumes, and a volume may be mounted in a folder of the same drive: worth a warning.
void WarnOfMountPoint(const std::wstring& tstrPath)
{
    wchar_t szMount[MAX_PATH] = {};
    if (!::GetVolumePathNameW(tstrPath.c_str(), szMount, MAX_PATH)) {
        Trace(kTraceError, L"::GetVolumePathName(%s) failed: %d", tstrPath.c_str(), ::GetLastError());
        return;
    }
    if (std::wcslen(szMount) > 3) {
        Trace(kTraceError, L"\"%s\" contains a volume mount point \"%s\"", tstrPath.c_str(), szMount);
    }
}

/// Copies the source beside the destination under the first free stage name. A run that is ended during the copy leaves
/// it there for good: nothing tells it from somebody else's file, so the next run takes the next name.
bool StageCopy(const std::wstring& tstrSource, const std::wstring& tstrDestination, std::wstring& tstrStaged)
{
    DWORD dwError = ERROR_SUCCESS;
    for (unsigned long ulIndex = 0; ulIndex < kStageNames; ++ulIndex) {
        std::wstring tstrIndex;
        if (!String::UlToStr(ulIndex, tstrIndex)) {
            Trace(kTraceError, L"KzCommon::String::UlToStr() failed: %d", ::GetLastError());
            continue;
        }
        const std::wstring tstrTempFileWithIndex = tstrDestination + tstrIndex;
        Trace(kTraceInfo, L"tsTempFileWithIndex: %s", tstrTempFileWithIndex.c_str());
        // A source that others hold is waited for once, not for each of the names.
        const bool bWait = !Storage::IsHeldByOthers(dwError);
        if (Storage::File::Copy(tstrTempFileWithIndex, tstrSource, false, &dwError, bWait)) {
            tstrStaged = tstrTempFileWithIndex;
            return true;
        }
        if (dwError == ERROR_FILE_EXISTS || dwError == ERROR_ALREADY_EXISTS) {
            Trace(kTraceInfo, L"::CopyFile(%s) failed: ERROR_ALREADY_EXISTS", tstrTempFileWithIndex.c_str());
        } else {
            Trace(kTraceError, L"::CopyFile(%s) failed: 0x%08X", tstrTempFileWithIndex.c_str(), dwError);
        }
    }
    Trace(kTraceError, L"could not create temp file");
    return false;
}

/// Carries out one step: its rows, then what it does besides.
void CarryOut(FrameworkDeployAgent& agent, const StepRow& step, const BaseFolders& bases)
{
    const OperationTrace trace(step.name);
    for (const CopyRow& row : kCopies) {
        if (row.eStep != step.eStep) continue;
        const std::wstring tstrSource = String::FolderBelow(bases[row.eSource], row.szSource);
        const std::wstring tstrDestination = String::FolderBelow(bases[row.eDestination], row.szDestination);
        static_cast<void>(agent.CopyDirectory(tstrSource, L"*.*", tstrDestination, row.bRecurse, row.bAfterReboot));
        if (row.trace) Trace(kTraceInfo, row.trace, tstrSource.c_str(), tstrDestination.c_str());
    }
    if (step.pfnAfterCopies) static_cast<void>((agent.*step.pfnAfterCopies)());
}

}  // namespace

bool FrameworkDeployAgent::DeployProgramPackage()
{
    const OperationTrace trace(L"FrameworkDeployAgent::DeployProgramPackage()");
    const BaseFolders bases = ResolveBases(m_pathValues, L"");
    for (const StepRow& step : kSteps) {
        if (step.eStep != eDeployResourceFiles) CarryOut(*this, step, bases);
    }
    return true;
}

bool FrameworkDeployAgent::DeployResourceFiles(const std::wstring& tstrDownloadDir)
{
    CarryOut(*this, kSteps[eDeployResourceFiles], ResolveBases(m_pathValues, tstrDownloadDir));
    return true;
}

bool FrameworkDeployAgent::CopyDirectory(const std::wstring& tstrSourceDir, const std::wstring& tstrPattern,
                                         const std::wstring& tstrDestinationDir, bool bRecurse, bool bAfterReboot)
{
    const OperationTrace trace(L"FrameworkDeployAgent::CopyDirectory()");
    if (tstrSourceDir.empty() || tstrDestinationDir.empty()) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::CopyDirectory() - unknown folder, source[%s], destination[%s]",
              tstrSourceDir.c_str(), tstrDestinationDir.c_str());
        return true;
    }
    // The folders that are still to be listed, source and destination: a tree can be too deep for recursion.
    std::vector<std::pair<std::wstring, std::wstring>> folders{
        {String::EnsureBackslash(tstrSourceDir), String::EnsureBackslash(tstrDestinationDir)}};
    while (!folders.empty()) {
        const std::wstring tstrSource = std::move(folders.back().first);
        const std::wstring tstrDestination = std::move(folders.back().second);
        folders.pop_back();
        const auto copyEntry = [&](const Storage::Directory::Entry& entry) {
            if (!entry.bFolder) {
                if (Storage::File::IsTemporaryName(entry.tstrName)) return;  // what an ended run left behind
                CopyOne(tstrSource + entry.tstrName, tstrDestination + entry.tstrName, bAfterReboot);
            } else if (bRecurse && !entry.bLink) {
                // What a link points to is not part of the package: moving it would take it from somebody else.
                folders.emplace_back(tstrSource + entry.tstrName + L'\\', tstrDestination + entry.tstrName + L'\\');
            }
        };
        DWORD dwError = ERROR_SUCCESS;
        if (!Storage::Directory::ForEachEntry(tstrSource, tstrPattern, copyEntry, &dwError) &&
            dwError != ERROR_FILE_NOT_FOUND && dwError != ERROR_PATH_NOT_FOUND) {
            Trace(kTraceError, L"*** FrameworkDeployAgent::CopyDirectory() - ::FindFirstFile(%s) failed. [0x%08x]",
                  tstrSource.c_str(), dwError);
        }
    }
    return true;
}

void FrameworkDeployAgent::CopyOne(const std::wstring& tstrSource, const std::wstring& tstrDestination,
                                   bool bAfterReboot)
{
    if (bAfterReboot) {
        static_cast<void>(CopyFileAfterReboot(tstrSource, tstrDestination));
        return;
    }
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::File::Copy(tstrDestination, tstrSource, true, &dwError)) {
        Trace(kTraceError, L"Failed to do file copy. dest='%s', src='%s', error code=%d", tstrDestination.c_str(),
              tstrSource.c_str(), dwError);
    }
}

bool FrameworkDeployAgent::CopyFileAfterReboot(const std::wstring& tstrSource, const std::wstring& tstrDestination)
{
    const OperationTrace trace(L"FrameworkDeployAgent::CopyFileAfterReboot()");
    Trace(kTraceInfo, L"src: %s, dst:%s", tstrSource.c_str(), tstrDestination.c_str());
    String::PathParts parts;
    if (const int iError = String::SplitPath(tstrSource, parts); iError != 0) {
        Trace(kTraceError, L"::_tsplitpath_s() failed: %d", iError);
        return false;
    }

    std::wstring tstrStaged = tstrSource;
    const bool bSameDrive = IsSameDrive(tstrSource, tstrDestination);
    if (bSameDrive) {
        WarnOfMountPoint(tstrSource);
        WarnOfMountPoint(tstrDestination);
        Trace(kTraceInfo, L"Move file in same drive, tsTempFileWithIndex[%s]", tstrStaged.c_str());
    } else {
        Trace(kTraceInfo, L"copy to a different drive");
        if (!StageCopy(tstrSource, tstrDestination, tstrStaged)) return false;
    }

    if (!::MoveFileExW(tstrStaged.c_str(), tstrDestination.c_str(),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_DELAY_UNTIL_REBOOT)) {
        const DWORD dwError = ::GetLastError();
        Trace(kTraceError, L"::MoveFileEx(%s, %s) failed: 0x%08X", tstrStaged.c_str(), tstrDestination.c_str(),
              dwError);
        // A staged copy that nothing will move would lie there for good.
        if (!bSameDrive) static_cast<void>(Storage::File::Delete(tstrStaged, nullptr));
        return false;
    }
    return true;
}
