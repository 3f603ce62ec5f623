#include "check/BroughtFiles.h"

#include "agent/SettingsFiles.h"
#include "check/Instructions.h"
#include "check/XmlForm.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace Check {

namespace {

/// "*" and "?", both texts in lower case.
bool MatchesWildcards(std::wstring_view tstrName, std::wstring_view tstrPattern)
{
    std::size_t uName = 0;
    std::size_t uPattern = 0;
    std::size_t uStar = std::wstring_view::npos;
    std::size_t uTaken = 0;  // up to where the last star has taken the name
    while (uName < tstrName.size()) {
        const wchar_t ch = uPattern < tstrPattern.size() ? tstrPattern[uPattern] : L'\0';
        if (ch == L'*') {
            uStar = uPattern++;
            uTaken = uName;
        } else if (ch == L'?' || (ch && ch == tstrName[uName])) {
            ++uName;
            ++uPattern;
        } else if (uStar != std::wstring_view::npos) {
            uPattern = uStar + 1;
            uName = ++uTaken;
        } else {
            return false;
        }
    }
    return tstrPattern.find_first_not_of(L'*', uPattern) == std::wstring_view::npos;
}

void AddFile(BroughtFiles& files, const std::wstring& tstrFile, const std::wstring& tstrDestination,
             PackageLayout::When eWhen)
{
    files[LowerCase(FolderPartOf(tstrDestination))].push_back({tstrFile, tstrDestination, eWhen});
}

}  // namespace

std::vector<PackageLayout::FolderCopy> CopiesOf(const Update& update, const std::wstring& tstrInstalled)
{
    std::vector<PackageLayout::FolderCopy> copies =
        PackageLayout::ListCopies({.tstrInstallDir = tstrInstalled,
                                   .tstrProductDownloadDir = update.Product().tstrFolder,
                                   .tstrProductDownloadPath = update.Product().tstrDownloadPath,
                                   .tstrResourceDownloadDir = update.Resource().tstrFolder});
    for (PackageLayout::FolderCopy& copy : copies) copy.tstrSourceDir = update.RelativeName(copy.tstrSourceDir);
    return copies;
}

bool Takes(const PackageLayout::FolderCopy& copy, std::wstring_view tstrFile)
{
    const std::size_t cch = copy.tstrSourceDir.size();
    if (tstrFile.size() <= cch || !String::EqualsNoCase(tstrFile.substr(0, cch), copy.tstrSourceDir)) return false;
    const bool bBelow = tstrFile.find(L'\\', cch) != std::wstring_view::npos;
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
            const std::wstring tstrSourceFolder = FolderPartOf(tstrFile);
            sources[tstrSourceFolder].push_back(tstrFile.substr(tstrSourceFolder.size()));
        }
    }
    return sources;
}

std::wstring FolderPartOf(const std::wstring& tstrPath)
{
    return tstrPath.substr(0, tstrPath.rfind(L'\\') + 1);
}

bool MatchesPattern(const std::wstring& tstrName, const std::wstring& tstrPattern)
{
    const std::wstring tstrLowerPattern = LowerCase(tstrPattern);
    std::wstring tstrLower = LowerCase(tstrName);
    if (MatchesWildcards(tstrLower, tstrLowerPattern)) return true;
    const std::size_t uDot = tstrLower.rfind(L'.');
    if (uDot == std::wstring::npos) return MatchesWildcards(tstrLower + L'.', tstrLowerPattern);

    constexpr std::size_t kShortExtension = 3;
    const std::size_t uPatternDot = tstrLowerPattern.rfind(L'.');
    const bool bShort = uPatternDot != std::wstring::npos &&
                        tstrLowerPattern.size() - uPatternDot - 1 == kShortExtension &&
                        tstrLowerPattern.find_first_of(L"*?") < uPatternDot;
    if (!bShort) return false;
    tstrLower.resize(std::min(tstrLower.size(), uDot + 1 + kShortExtension));
    return MatchesWildcards(tstrLower, tstrLowerPattern);
}

}  // namespace Check
