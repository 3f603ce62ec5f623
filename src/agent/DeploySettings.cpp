#include "agent/DeploySettings.h"

#include "agent/ConfigMerge.h"
#include "agent/IniEdits.h"
#include "agent/RegistryPatch.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace {

constexpr LanguageFile kLanguageFiles[] = {{L"config", L"xml"}, {L"qorshcut", L"xml"}, {L"readme", L"htm"}};

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

/// A file in the product's download folder that says that the update information file there is this run's copy and not
/// changed yet. A run that is ended in between leaves the mark behind: the next one then makes the copy anew, instead
/// of taking it for a file of the update's own, which is deployed as it is.
class UnfinishedMark {
public:
    UnfinishedMark(const std::wstring& tstrDownloadDir, const std::wstring& tstrDownloaded)
        : m_tstrMark(tstrDownloadDir + L"UpdateInfo.unfinished")
    {
        if (Storage::File::IsExisted(m_tstrMark)) static_cast<void>(Storage::File::Delete(tstrDownloaded, nullptr));
        if (Storage::File::IsExisted(tstrDownloaded)) return;
        const UniqueFile file(::CreateFileW(m_tstrMark.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                            FILE_ATTRIBUTE_NORMAL, nullptr));
    }
    UnfinishedMark(const UnfinishedMark&) = delete;
    UnfinishedMark& operator=(const UnfinishedMark&) = delete;
    ~UnfinishedMark() { static_cast<void>(Storage::File::Delete(m_tstrMark, nullptr)); }

private:
    std::wstring m_tstrMark;
};

/// The update information file to change: the downloaded one, made out of the installed one where the update brings
/// none, or the installed one where that cannot be done.
std::wstring SelectUpdateInfo(const std::wstring& tstrInstalled, const std::wstring& tstrDownloaded)
{
    // Twice, as support knows it.
    Trace(kTraceInfo, L"Installed UpdateInfo.ini is '%s'.", tstrInstalled.c_str());
    Trace(kTraceInfo, L"Installed UpdateInfo.ini is '%s'.", tstrInstalled.c_str());
    DWORD dwError = ERROR_SUCCESS;
    if (Storage::File::Copy(tstrDownloaded, tstrInstalled, false, &dwError)) return tstrDownloaded;
    Trace(kTraceError,
          L"Failed to copy UpdateInfo.ini to iUD download source folder, error code is %d. Modify installed one.",
          dwError);
    return tstrInstalled;
}

}  // namespace

std::span<const LanguageFile> LanguageFiles() noexcept
{
    return kLanguageFiles;
}

bool PrepareSettings(const PathValues& pathValues)
{
    PatchRegistry(pathValues);
    const std::wstring tstrSettingDir = String::FolderBelow(pathValues.ProductDownloadDir(), L"Share\\Setting");
    if (!Storage::Directory::IsExisted(tstrSettingDir)) {
        Trace(kTraceError, L"No files under directory '%s'", tstrSettingDir.c_str());
        return false;
    }
    for (const LanguageFile& file : kLanguageFiles) SelectLanguageFile(tstrSettingDir, file);
    MergeConfig(tstrSettingDir);
    const std::wstring tstrDownloaded = tstrSettingDir + L"UpdateInfo.ini";
    const UnfinishedMark mark(pathValues.ProductDownloadDir(), tstrDownloaded);
    const std::wstring tstrTarget = SelectUpdateInfo(pathValues.UpdateInfoFile(), tstrDownloaded);
    ModifyUpdateInfo({.tstrPath = tstrTarget, .tstrWritten = tstrTarget});
    return true;
}
