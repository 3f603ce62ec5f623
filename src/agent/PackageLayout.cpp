#include "agent/PackageLayout.h"

#include "common/KzComn_Process.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace PackageLayout {

namespace {

using enum Base;
using enum Depth;
using enum When;

constexpr DeployStep kProgramSteps[] = {
    // clang-format off
    {L"FrameworkDeployAgent::DeployFrameworkFiles()", {
        {{ePackage, L""}, {eInstall, L""}, eFolderOnly, eAtRestart,
         L"FrameworkDeployAgent::DeployFrameworkFiles(tsSrcFrameworkFolder[%s], tsDstFrameworkFolder[%s])"}}},
    {L"FrameworkDeployAgent::DeployDriverFiles()", {
        {{ePackage, L"Driver"}, {eInstall, L"Driver"}, eFolderOnly, eNow},
        {{ePackage, L"Driver"}, {eSystemDrive, L""}, eFolderOnly, eNow}}},
    {L"FrameworkDeployAgent::DeployEngineFiles()", {
        {{eProduct, L"Engine\\Preload"}, {eAppData, L"Kazmere\\KZVLT\\Engine\\Preload"}, eFolderOnly, eAtRestart,
         L"FrameworkDeployAgent::DeployEngineFiles(tstrPreLoadEngineSourceDir[%s], tstrInstallPreLoadEngine[%s])"},
        {{eShare, L"Engine"}, {eInstall, L""}, eFolderOnly, eAtRestart,
         L"FrameworkDeployAgent::DeployPatternFiles(tstrEngineSourceDir[%s], tstrInstallEngine[%s])"}}},
    {L"FrameworkDeployAgent::DeployPatternFiles()", {
        {{eShare, L"Patterns"}, {eInstall, L"Patterns"}, eFolderOnly, eAtRestart,
         L"FrameworkDeployAgent::DeployPatternFiles(tstrPatternSourceDir[%s], tstrInstallPattern[%s])"}}},
    {L"FrameworkDeployAgent::Deploy7ZipFiles()", {
        {{eShare, L"7-Zip"}, {eInstall, L""}, eWithSubfolders, eAtRestart,
         L"FrameworkDeployAgent::Deploy7ZipFiles(tstr7ZipSourceDir[%s], tstrInstall7Zip[%s])"}}},
    {L"FrameworkDeployAgent::DeployBrowserFiles()", {
        {{eShare, L"QorFirefoxExt"}, {eInstall, L"QorFirefoxExt"}, eWithSubfolders, eAtRestart,
         L"FrameworkDeployAgent::DeployBrowserFiles(tstrFirefoxExtSourceDir[%s], tstrInstallFirefoxExt[%s])"},
        {{eShare, L"QorNativeMessaging"}, {eInstall, L"QorNativeMessaging"}, eFolderOnly, eAtRestart,
         L"CDeployComponentsAction::DeployBrowserFiles(tstrNativeMsgSourceDir[%s], tstrInstallNativeMsg[%s])"},
        {{eShare, L"QorIEExt"}, {eInstall, L""}, eFolderOnly, eAtRestart,
         L"CDeployComponentsAction::DeployBrowserFiles(tstrIEExtSourceDir[%s], tstrInstallIEExt[%s])"}}},
    {L"FrameworkDeployAgent::DeployUIFiles()", {
        {{eShare, L"UI"}, {eInstall, L""}, eFolderOnly, eAtRestart},
        {{eShare, L"Resource"}, {eInstall, L"Resource"}, eWithSubfolders, eAtRestart}}},
    {L"FrameworkDeployAgent::DeployTaskFiles()", {
        {{eShare, L"Task"}, {eInstall, L"Task"}, eWithSubfolders, eAtRestart}}},
    {L"FrameworkDeployAgent::DeploySettings()", {
        {{eShare, L"Setting"}, {eInstall, L""}, eWithSubfolders, eAtRestart,
         L"CDeployComponentsAction::CopyDirectory(strDownloadSettingDir[%s], m_tsInstallFolder[%s])"}},
     true},
    // clang-format on
};

constexpr DeployStep kResourceStep = {
    // clang-format off
    L"FrameworkDeployAgent::DeployResourceFiles()", {
        {{eResource, L""}, {eInstall, L"Resource"}, eWithSubfolders, eAtRestart,
         L"CDeployComponentsAction::DeployBrowserFiles(tsDownload[%s], tsDst[%s])"}},
    // clang-format on
};

/// The root of the Windows drive; empty when the system folder is unknown.
std::wstring SystemDriveRoot(const Machine& machine)
{
    const std::wstring tstrSystem = machine.FolderOf(KnownFolder::eSystem);
    if (tstrSystem.empty()) return {};
    String::PathParts parts;
    const int iError = String::SplitPath(tstrSystem, parts);
    if (iError != 0 || !parts.szDrive[0]) {
        Trace(kTraceError, L"Cannot retrieve system drive letter: %d", iError);
        return L"C:\\";
    }
    return String::EnsureBackslash(parts.szDrive);
}

}  // namespace

std::span<const DeployStep> ProgramSteps() noexcept
{
    return kProgramSteps;
}

const DeployStep& ResourceStep() noexcept
{
    return kResourceStep;
}

BaseFolders::BaseFolders(const Machine& machine, const PackageFolders& folders)
    : m_folders(folders),
      m_tstrShareDir(String::FolderBelow(folders.tstrProductDownloadDir, L"Share")),
      m_tstrAppDataDir(machine.FolderOf(KnownFolder::eCommonAppData)),
      m_tstrSystemDrive(SystemDriveRoot(machine))
{
    // The updater repeats the component's name below the platform's folder.
    const std::wstring tstrPlatform =
        String::FolderBelow(folders.tstrProductDownloadDir, Process::Is64BitWindows() ? L"64bit" : L"32bit");
    m_tstrPackageDir = String::FolderBelow(tstrPlatform, folders.tstrProductDownloadPath);
}

std::wstring BaseFolders::FolderOf(const Place& place) const
{
    const auto below = [&](const std::wstring& tstrBase) {
        return String::FolderBelow(tstrBase, place.szBelow);
    };
    switch (place.eBase) {
        case ePackage: return below(m_tstrPackageDir);
        case eProduct: return below(m_folders.tstrProductDownloadDir);
        case eShare: return below(m_tstrShareDir);
        case eResource: return below(m_folders.tstrResourceDownloadDir);
        case eInstall: return below(m_folders.tstrInstallDir);
        case eAppData: return below(m_tstrAppDataDir);
        case eSystemDrive: return below(m_tstrSystemDrive);
    }
    return {};
}

std::vector<FolderCopy> ListCopies(const Machine& machine, const PackageFolders& folders)
{
    const BaseFolders bases(machine, folders);
    std::vector<FolderCopy> copies;
    const auto add = [&](const DeployStep& step) {
        for (const CopyRow& row : step.rows) {
            copies.push_back({&step, &row, bases.FolderOf(row.source), bases.FolderOf(row.destination)});
        }
    };
    for (const DeployStep& step : ProgramSteps()) add(step);
    add(ResourceStep());
    return copies;
}

}  // namespace PackageLayout
