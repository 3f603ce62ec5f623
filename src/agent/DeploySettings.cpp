#include "agent/DeploySettings.h"

#include "agent/ConfigMerge.h"
#include "agent/IniEdits.h"
#include "agent/RegistryPatch.h"
#include "agent/SettingsFiles.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_Retry.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace {

/// Makes the product's language the one that is installed.
void SelectLanguageFile(const std::wstring& tstrFolder, const LanguageFile& file)
{
    const std::wstring tstrBase = tstrFolder + file.szBase;
    const std::wstring tstrSource = tstrBase + L"_" + Frwk::Utility::GetLanguage() + L"." + file.szExtension;
    const std::wstring tstrDestination = tstrBase + L"." + file.szExtension;
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::File::Copy(tstrDestination, tstrSource, true, &dwError)) {
        Trace(kTraceError, L"Failed to do file copy. dest='%s', src='%s', error code=%d", tstrDestination.c_str(),
              tstrSource.c_str(), dwError);
    }
}

void TraceInstalledIsModified(DWORD dwError)
{
    Trace(kTraceError,
          L"Failed to copy UpdateInfo.ini to iUD download source folder, error code is %d. Modify installed one.",
          dwError);
}

/// A file of the product's download folder in which the update information is changed before it takes its place among
/// the settings: there, a run that is ended half-way would leave a file that the next one takes for the update's own.
/// What such a run leaves here is not deployed, and the next run makes it anew.
std::wstring WorkingCopyOf(const PathValues& pathValues)
{
    return pathValues.ProductDownloadDir() + L"UpdateInfo.unfinished";
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
        const std::wstring tstrWorkingCopy = WorkingCopyOf(pathValues);
        static_cast<void>(Storage::File::Delete(tstrWorkingCopy, nullptr));
        if (Storage::File::Copy(tstrWorkingCopy, tstrInstalled, false, &dwError)) {
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

bool PrepareSettings(const PathValues& pathValues)
{
    PatchRegistry(pathValues);
    const std::wstring tstrSettingDir = String::FolderBelow(pathValues.ProductDownloadDir(), L"Share\\Setting");
    if (!Storage::Directory::IsExisted(tstrSettingDir)) {
        Trace(kTraceError, L"No files under directory '%s'", tstrSettingDir.c_str());
        return false;
    }
    // The copy does not follow a link, and says so: what it leads to is not the package's to be changed.
    if (Storage::Directory::IsLink(tstrSettingDir)) return true;
    const std::wstring tstrKept = KeepDuringMerge(tstrSettingDir);
    for (const LanguageFile& file : LanguageFiles()) SelectLanguageFile(tstrSettingDir, file);
    if (MergeConfig(tstrSettingDir)) DropKept(tstrKept);
    EditUpdateInfo(pathValues, tstrSettingDir + L"UpdateInfo.ini");
    return true;
}
