#include "check/BroughtFiles.h"

#include "agent/SettingsFiles.h"
#include "check/Instructions.h"
#include "check/XmlForm.h"
#include "common/KzComn_File.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"

using namespace KzCommon;

namespace Check {

namespace {

void AddFile(BroughtFiles& files, const std::wstring& tstrFile, const std::wstring& tstrDestination,
             PackageLayout::When eWhen)
{
    files[LowerCase(String::FolderPart(tstrDestination))].push_back({tstrFile, tstrDestination, eWhen});
}

}  // namespace

std::vector<PackageLayout::FolderCopy> CopiesOf(const Update& update, const std::wstring& tstrInstalled)
{
    std::vector<PackageLayout::FolderCopy> copies =
        PackageLayout::ListCopies(WindowsMachine(), {.tstrInstallDir = tstrInstalled,
                                                     .tstrProductDownloadDir = update.Product().tstrFolder,
                                                     .tstrProductDownloadPath = update.Product().tstrDownloadPath,
                                                     .tstrResourceDownloadDir = update.Resource().tstrFolder});
    for (PackageLayout::FolderCopy& copy : copies) copy.tstrSourceDir = update.RelativeName(copy.tstrSourceDir);
    return copies;
}

bool Takes(const PackageLayout::FolderCopy& copy, std::wstring_view tstrFile)
{
    if (!String::IsBelow(tstrFile, copy.tstrSourceDir)) return false;
    if (Storage::File::IsTemporaryName(tstrFile.substr(String::FolderPart(tstrFile).size()))) return false;
    const bool bBelow = tstrFile.find(L'\\', copy.tstrSourceDir.size()) != std::wstring_view::npos;
    return !bBelow || copy.eDepth == PackageLayout::Depth::eWithSubfolders;
}

BroughtFiles ListBroughtFiles(const Update& update, const std::wstring& tstrInstalled)
{
    BroughtFiles files;
    for (const PackageLayout::FolderCopy& copy : CopiesOf(update, tstrInstalled)) {
        for (const std::wstring& tstrFile : update.Files()) {
            if (!Takes(copy, tstrFile)) continue;
            AddFile(files, tstrFile, copy.tstrDestinationDir + tstrFile.substr(copy.tstrSourceDir.size()), copy.eWhen);
        }
    }
    for (const LanguageFile& file : LanguageFiles()) {
        const std::wstring tstrName = std::wstring(file.szBase) + L"." + file.szExtension;
        const std::vector<std::wstring> sources = SettingFiles(update, file.szBase, file.szExtension);
        if (sources.empty() || String::EqualsNoCase(sources.front(), update.SettingFolder() + tstrName)) continue;
        AddFile(files, sources.front(), tstrInstalled + tstrName, PackageLayout::When::eAtRestart);
    }
    // The agent puts the changed one among the settings.
    const std::wstring tstrInfo = update.SettingFolder() + kUpdateInfoFile;
    if (update.Product().bThere && Storage::Directory::IsExisted(update.FullPath(update.SettingFolder())) &&
        update.FilesIn(update.SettingFolder(), kUpdateInfoFile).empty()) {
        AddFile(files, tstrInfo, tstrInstalled + kUpdateInfoFile, PackageLayout::When::eAtRestart);
    }
    return files;
}

std::map<std::wstring, std::vector<std::wstring>> ListMovedSources(const BroughtFiles& files)
{
    std::map<std::wstring, std::vector<std::wstring>> sources;
    for (const auto& [tstrFolder, brought] : files) {
        for (const BroughtFile& file : brought) {
            if (file.eWhen != PackageLayout::When::eAtRestart) continue;
            const std::wstring tstrFile = LowerCase(file.tstrFile);
            const std::wstring tstrSourceFolder = String::FolderPart(tstrFile);
            sources[tstrSourceFolder].push_back(tstrFile.substr(tstrSourceFolder.size()));
        }
    }
    return sources;
}

}  // namespace Check
