#include "agent/DeploySettings.h"

#include "agent/ConfigMerge.h"
#include "agent/IniEdits.h"
#include "agent/RegistryPatch.h"
#include "agent/SettingsFiles.h"
#include "agent/WorkingCopy.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_Retry.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace {

void TraceFailedCopy(const std::wstring& tstrDestination, const std::wstring& tstrSource, DWORD dwError)
{
    Trace(kTraceError, L"Failed to do file copy. dest='%s', src='%s', error code=%d", tstrDestination.c_str(),
          tstrSource.c_str(), dwError);
}

/// Copies a file over one of the settings. What an earlier run put there may be read-only.
bool PutInPlace(const std::wstring& tstrDestination, const std::wstring& tstrSource)
{
    static_cast<void>(Storage::File::MakeWritable(tstrDestination, nullptr));
    DWORD dwError = ERROR_SUCCESS;
    if (Storage::File::Copy(tstrDestination, tstrSource, true, &dwError)) return true;
    TraceFailedCopy(tstrDestination, tstrSource, dwError);
    return false;
}

/// A language's file and the one that it becomes.
struct Selection {
    std::wstring tstrSource;
    std::wstring tstrDestination;
};

Selection SelectionOf(const std::wstring& tstrFolder, const LanguageFile& file)
{
    const std::wstring tstrBase = tstrFolder + file.szBase;
    return {.tstrSource = tstrBase + L"_" + Frwk::Utility::GetLanguage() + L"." + file.szExtension,
            .tstrDestination = tstrBase + L"." + file.szExtension};
}

/// The configuration file of the product's language, in a working copy: it takes its place when it has the user's
/// values. An earlier run may have registered its move, and a run that is ended before that would let the restart
/// install it without them. Where there can be no working copy it is in its place at once, and the user's file kept
/// first.
ConfigTarget SelectConfig(PathValues& pathValues, const Selection& file)
{
    ConfigTarget target{.tstrPath = file.tstrDestination, .tstrWritten = file.tstrDestination};
    DWORD dwError = ERROR_SUCCESS;
    const bool bLanguage = Storage::File::IsExisted(file.tstrSource, &dwError);
    if (!bLanguage) TraceFailedCopy(file.tstrDestination, file.tstrSource, dwError);
    if (!bLanguage && !Storage::File::IsExisted(file.tstrDestination)) return target;
    const std::wstring tstrWorkingCopy = WorkingCopyOf(pathValues, WorkingFile::eConfig);
    if (MakeWorkingCopy(tstrWorkingCopy, bLanguage ? file.tstrSource : file.tstrDestination, dwError)) {
        target.tstrWritten = tstrWorkingCopy;
        return target;
    }
    KeepUsersFile(pathValues, target);
    if (bLanguage) static_cast<void>(PutInPlace(file.tstrDestination, file.tstrSource));
    return target;
}

/// Makes the settings files of the product's language the ones that are installed, with the user's values.
void SelectLanguage(PathValues& pathValues, const std::wstring& tstrFolder)
{
    ConfigTarget config;
    for (const LanguageFile& file : LanguageFiles()) {
        const Selection selection = SelectionOf(tstrFolder, file);
        if (file.bMerged) {
            config = SelectConfig(pathValues, selection);
        } else {
            static_cast<void>(PutInPlace(selection.tstrDestination, selection.tstrSource));
        }
    }
    const bool bCarriedOver = MergeConfig(pathValues, config);
    const bool bCopied = config.tstrWritten != config.tstrPath;
    const bool bInPlace = !bCopied || PutInPlace(config.tstrPath, config.tstrWritten);
    if (bCarriedOver && bInPlace) {
        DropKeptFiles();
    } else if (bCarriedOver) {
        KeepUsersFile(pathValues, config);
    }
    if (bCopied) static_cast<void>(Storage::File::Delete(config.tstrWritten, nullptr));
}

void TraceInstalledIsModified(DWORD dwError)
{
    Trace(kTraceError,
          L"Failed to copy UpdateInfo.ini to iUD download source folder, error code is %d. Modify installed one.",
          dwError);
}

/// The update information file to change: the one among the settings, made out of the installed one where the update
/// brings none, or the installed one where that cannot be done.
IniTarget SelectUpdateInfo(const PathValues& pathValues, const std::wstring& tstrDownloaded)
{
    const std::wstring tstrInstalled = pathValues.UpdateInfoFile();
    // Twice, as support knows it.
    Trace(kTraceInfo, L"Installed UpdateInfo.ini is '%s'.", tstrInstalled.c_str());
    Trace(kTraceInfo, L"Installed UpdateInfo.ini is '%s'.", tstrInstalled.c_str());
    DWORD dwError = ERROR_SUCCESS;
    if (IsUpdateInfoCopied(tstrInstalled, tstrDownloaded)) {
        const std::wstring tstrWorkingCopy = WorkingCopyOf(pathValues, WorkingFile::eUpdateInfo);
        if (MakeWorkingCopy(tstrWorkingCopy, tstrInstalled, dwError)) {
            return {.tstrPath = tstrDownloaded, .tstrWritten = tstrWorkingCopy};
        }
    }
    if (Storage::File::Copy(tstrDownloaded, tstrInstalled, false, &dwError)) {
        return {.tstrPath = tstrDownloaded, .tstrWritten = tstrDownloaded};
    }
    TraceInstalledIsModified(dwError);
    return {.tstrPath = tstrInstalled, .tstrWritten = tstrInstalled};
}

/// Changes the update information that is deployed with the settings.
void EditUpdateInfo(const PathValues& pathValues, const std::wstring& tstrDownloaded)
{
    const IniTarget target = SelectUpdateInfo(pathValues, tstrDownloaded);
    ModifyUpdateInfo(target);
    if (target.tstrWritten == target.tstrPath) return;
    DWORD dwError = ERROR_SUCCESS;
    const auto putInPlace = [&](DWORD& dwCode) {
        if (::MoveFileExW(target.tstrWritten.c_str(), target.tstrPath.c_str(), 0)) return true;
        dwCode = ::GetLastError();
        return false;
    };
    if (Storage::TryWhileHeld(putInPlace, &dwError)) return;
    TraceInstalledIsModified(dwError);
    static_cast<void>(Storage::File::Delete(target.tstrWritten, nullptr));
    const std::wstring tstrInstalled = pathValues.UpdateInfoFile();
    ModifyUpdateInfo({.tstrPath = tstrInstalled, .tstrWritten = tstrInstalled});
}

}  // namespace

bool PrepareSettings(PathValues& pathValues)
{
    PatchRegistry(pathValues);
    const std::wstring tstrSettingDir = String::FolderBelow(pathValues.ProductDownloadDir(), L"Share\\Setting");
    if (!Storage::Directory::IsExisted(tstrSettingDir)) {
        Trace(kTraceError, L"No files under directory '%s'", tstrSettingDir.c_str());
        return false;
    }
    // The copy does not follow a link, and says so: what it leads to is not the package's to be changed.
    if (Storage::Directory::IsLink(tstrSettingDir)) return true;
    RemoveWorkingCopies(pathValues);
    SelectLanguage(pathValues, tstrSettingDir);
    EditUpdateInfo(pathValues, tstrSettingDir + L"UpdateInfo.ini");
    return true;
}
