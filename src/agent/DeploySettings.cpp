#include "agent/DeploySettings.h"

#include "agent/ConfigMerge.h"
#include "agent/IniEdits.h"
#include "agent/RegistryPatch.h"
#include "agent/SettingsFiles.h"
#include "agent/WorkingCopy.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace {

void TraceFailedCopy(const std::wstring& tstrDestination, const std::wstring& tstrSource, DWORD dwError)
{
    Trace(kTraceError, L"Failed to do file copy. dest='%s', src='%s', error code=%d", tstrDestination.c_str(),
          tstrSource.c_str(), dwError);
}

/// Reports a copy that is not possible or not needed.
void ReportUncopied(Machine& machine, const std::wstring& tstrDestination, const std::wstring& tstrSource,
                    Outcome eOutcome, const wchar_t* szReason)
{
    Change change{.eAction = Action::eCopy, .eOutcome = eOutcome};
    change.tstrTarget = tstrDestination;
    change.tstrSource = tstrSource;
    change.tstrReason = szReason;
    machine.Report(change);
}

/// Copies a file over one of the settings, which may be read-only after an earlier run.
bool PutInPlace(Machine& machine, const std::wstring& tstrDestination, const std::wstring& tstrSource)
{
    static_cast<void>(machine.MakeWritable(tstrDestination, nullptr));
    DWORD dwError = ERROR_SUCCESS;
    if (machine.CopyNow(tstrDestination, tstrSource, CopyMode::eOverwrite, &dwError)) return true;
    TraceFailedCopy(tstrDestination, tstrSource, dwError);
    return false;
}

/// A language's file and the settings file that it becomes.
struct Selection {
    std::wstring tstrSource;
    std::wstring tstrDestination;
};

Selection SelectionOf(const Machine& machine, const std::wstring& tstrFolder, const LanguageFile& file)
{
    return {.tstrSource = tstrFolder + NameInLanguage(file, Frwk::Utility::GetLanguage(machine)),
            .tstrDestination = tstrFolder + InstalledName(file)};
}

/// Prepares the configuration file of the product's language in a working copy, which takes its place once it contains
/// the user's values. Otherwise an interrupted run could leave a file without them, and a move scheduled by an earlier
/// run would install it at the restart. Without a working copy, the file is put in place at once and the user's file is
/// kept first.
ConfigTarget SelectConfig(RunContext& run, const Selection& file)
{
    ConfigTarget target{.tstrPath = file.tstrDestination, .tstrWritten = file.tstrDestination};
    DWORD dwError = ERROR_SUCCESS;
    const bool bLanguage = run.machine.HasFile(file.tstrSource, &dwError);
    if (!bLanguage) {
        TraceFailedCopy(file.tstrDestination, file.tstrSource, dwError);
        ReportUncopied(run.machine, file.tstrDestination, file.tstrSource, Outcome::eFail,
                       L"there is no such file to copy");
    }
    if (!bLanguage && !run.machine.HasFile(file.tstrDestination)) return target;
    const std::wstring tstrWorkingCopy = WorkingCopyOf(run.paths, WorkingFile::eConfig);
    if (MakeWorkingCopy(run.machine, tstrWorkingCopy, bLanguage ? file.tstrSource : file.tstrDestination, dwError)) {
        target.tstrWritten = tstrWorkingCopy;
        return target;
    }
    KeepUsersFile(run, target);
    if (bLanguage) static_cast<void>(PutInPlace(run.machine, file.tstrDestination, file.tstrSource));
    return target;
}

/// Installs the settings files of the product's language, with the user's values.
void SelectLanguage(RunContext& run, const std::wstring& tstrFolder)
{
    ConfigTarget config;
    for (const LanguageFile& file : LanguageFiles()) {
        const Selection selection = SelectionOf(run.machine, tstrFolder, file);
        if (file.bMerged) {
            config = SelectConfig(run, selection);
        } else {
            static_cast<void>(PutInPlace(run.machine, selection.tstrDestination, selection.tstrSource));
        }
    }
    const bool bCarriedOver = MergeConfig(run, config);
    const bool bCopied = config.tstrWritten != config.tstrPath;
    if (bCopied) run.machine.BeginOperation(L"SelectLanguageFile");
    const bool bInPlace = !bCopied || PutInPlace(run.machine, config.tstrPath, config.tstrWritten);
    if (bCarriedOver && bInPlace) {
        DropKeptFiles(run.machine);
    } else if (bCarriedOver) {
        KeepUsersFile(run, config);
    }
    if (bCopied) static_cast<void>(run.machine.DeleteNow(config.tstrWritten, nullptr));
}

void TraceInstalledIsModified(DWORD dwError)
{
    Trace(kTraceError,
          L"Failed to copy UpdateInfo.ini to iUD download source folder, error code is %d. Modify installed one.",
          dwError);
}

/// Chooses the update information file to change: the one among the settings (copied from the installed one when the
/// update has none), or the installed one when copying fails.
IniTarget SelectUpdateInfo(const RunContext& run, const std::wstring& tstrDownloaded)
{
    const std::wstring tstrInstalled = run.paths.UpdateInfoFile();
    // Traced twice; support expects both lines.
    Trace(kTraceInfo, L"Installed UpdateInfo.ini is '%s'.", tstrInstalled.c_str());
    Trace(kTraceInfo, L"Installed UpdateInfo.ini is '%s'.", tstrInstalled.c_str());
    DWORD dwError = ERROR_SUCCESS;
    if (IsUpdateInfoCopied(run.machine, tstrInstalled, tstrDownloaded)) {
        const std::wstring tstrWorkingCopy = WorkingCopyOf(run.paths, WorkingFile::eUpdateInfo);
        if (MakeWorkingCopy(run.machine, tstrWorkingCopy, tstrInstalled, dwError)) {
            return {.tstrPath = tstrDownloaded, .tstrWritten = tstrWorkingCopy};
        }
    }
    if (run.machine.CopyNow(tstrDownloaded, tstrInstalled, CopyMode::eNew, &dwError)) {
        return {.tstrPath = tstrDownloaded, .tstrWritten = tstrDownloaded};
    }
    TraceInstalledIsModified(dwError);
    if (dwError == ERROR_FILE_EXISTS) {
        ReportUncopied(run.machine, tstrDownloaded, tstrInstalled, Outcome::eStay,
                       L"it already exists: the installed file is changed, and the restart replaces it");
    }
    return {.tstrPath = tstrInstalled, .tstrWritten = tstrInstalled};
}

/// Changes the update information that the settings step deploys.
void EditUpdateInfo(const RunContext& run, const std::wstring& tstrDownloaded)
{
    run.machine.BeginOperation(L"ModifyUpdateInfo");
    const IniTarget target = SelectUpdateInfo(run, tstrDownloaded);
    ModifyUpdateInfo(run.machine, target);
    if (target.tstrWritten == target.tstrPath) return;
    DWORD dwError = ERROR_SUCCESS;
    if (run.machine.MoveNow(target.tstrWritten, target.tstrPath, &dwError)) return;
    TraceInstalledIsModified(dwError);
    ReportUncopied(run.machine, target.tstrPath, run.paths.UpdateInfoFile(), Outcome::eFail,
                   L"it cannot be put in place: the installed file is changed instead");
    static_cast<void>(run.machine.DeleteNow(target.tstrWritten, nullptr));
    const std::wstring tstrInstalled = run.paths.UpdateInfoFile();
    ModifyUpdateInfo(run.machine, {.tstrPath = tstrInstalled, .tstrWritten = tstrInstalled});
}

}  // namespace

bool PrepareSettings(RunContext& run)
{
    PatchRegistry(run);
    const std::wstring tstrSettingDir = String::FolderBelow(run.paths.ProductDownloadDir(), L"Share\\Setting");
    if (!run.machine.HasFolder(tstrSettingDir)) {
        Trace(kTraceError, L"No files under directory '%s'", tstrSettingDir.c_str());
        run.machine.BeginOperation(L"DeploySettings");
        run.machine.ExplainNothing(L"there is no folder " + tstrSettingDir);
        return false;
    }
    // The copy step skips a link and reports it. Its target does not belong to the package and is not changed.
    if (run.machine.IsLink(tstrSettingDir)) return true;
    run.machine.BeginOperation(L"SelectLanguageFile");
    RemoveWorkingCopies(run);
    SelectLanguage(run, tstrSettingDir);
    EditUpdateInfo(run, tstrSettingDir + L"UpdateInfo.ini");
    return true;
}
