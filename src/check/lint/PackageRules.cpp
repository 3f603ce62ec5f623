// B070, B071, B073 to B075, B077 and B078: the layout of the packages.
#include "check/lint/Lint.h"
#include "check/update/Instructions.h"
#include "check/update/Suggestion.h"

#include "agent/DownloadPath.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"

#include <shlwapi.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <string_view>

using namespace KzCommon;

namespace Check {

namespace {

/// The folders below "Component\\" that the update information does not name, as deep as the ones it names, without
/// those in and around a package that is there.
std::vector<std::wstring> UnnamedFolders(const Update& update)
{
    std::vector<std::wstring> named;
    std::ptrdiff_t cLevels = 1;
    for (const Package* pPackage : {&update.Product(), &update.Resource()}) {
        const std::wstring& tstrPath = pPackage->tstrDownloadPath;
        cLevels = std::max(cLevels, 1 + std::count(tstrPath.begin(), tstrPath.end(), L'\\'));
        if (pPackage->bThere) named.push_back(tstrPath + L"\\");
    }
    std::vector<std::wstring> others;
    std::vector<std::wstring> folders{L""};
    for (; cLevels > 0; --cLevels) {
        std::vector<std::wstring> below;
        for (const std::wstring& tstrFolder : folders) {
            const auto visit = [&](const Storage::Directory::Entry& entry) {
                if (entry.bFolder && !entry.bLink) below.push_back(tstrFolder + entry.tstrName + L"\\");
            };
            static_cast<void>(
                Storage::Directory::ForEachEntry(update.FullPath(kComponents + tstrFolder), L"*", visit, nullptr));
        }
        for (const std::wstring& tstrFolder : below) {
            const bool bNamed = std::any_of(named.begin(), named.end(), [&](const std::wstring& tstrNamed) {
                return String::StartsWithNoCase(tstrFolder, tstrNamed) ||
                       String::StartsWithNoCase(tstrNamed, tstrFolder);
            });
            if (!bNamed) others.push_back(tstrFolder.substr(0, tstrFolder.size() - 1));
        }
        folders = std::move(below);
    }
    std::ranges::sort(others);
    return others;
}

/// Whether a folder has a string table for a language, as resource packages do.
bool HasStringTable(const std::wstring& tstrFolder)
{
    bool bHas = false;
    static_cast<void>(Storage::Directory::ForEachEntry(
        tstrFolder, L"*",
        [&](const Storage::Directory::Entry& entry) {
            bHas = bHas || Storage::File::IsExisted(tstrFolder + entry.tstrName + L"\\StringTable.ini");
        },
        nullptr));
    return bHas;
}

/// A package whose folder is not there, and the other folders below "Component\\" that may be meant.
struct MissingPackage {
    const Package& package;
    const DownloadKey& key;
    const wchar_t* szKind;
    std::wstring tstrMeant;
};

/// Where the update information names the package; line 0 when the name is the agent's own, for want of one.
TextPosition PlaceOfName(const IniScan& info, const DownloadKey& key)
{
    const IniSection* const pSection = info.Find(L"COMPONENT_LIST");
    if (!pSection) return {};
    const auto it = std::find_if(pSection->records.begin(), pSection->records.end(), [&](const IniRecord& record) {
        return record.IsRecord() && String::EqualsNoCase(record.tstrKey, key.szKey);
    });
    return it == pSection->records.end() ? TextPosition{} : it->valuePlace;
}

/// B074 of a package that the update information names. False for one that it does not name.
bool CheckNamedPackage(const Update& update, const IniScan& info, const MissingPackage& missing, Report& report)
{
    const TextPosition place = PlaceOfName(info, missing.key);
    if (place.uLine == 0) return false;
    const std::wstring tstrFolder = L"\"" + update.Root().Relative(missing.package.folder) + L"\"";
    const std::wstring& tstrRefused = missing.package.tstrRefused;
    if (!tstrRefused.empty()) {
        report.Add(Rule::ePackageMissing, kUpdateInfoFile, place,
                   L"\"" + tstrRefused + L"\" is no path of a folder below \"Component\\\": the " + missing.szKind +
                       L" package is looked for in " + tstrFolder,
                   missing.tstrMeant);
        return true;
    }
    report.Add(Rule::ePackageMissing, kUpdateInfoFile, place,
               L"the " + std::wstring(missing.szKind) + L" package is not there, it is looked for in " + tstrFolder +
                   L": the agent does not deploy it",
               missing.tstrMeant);
    return true;
}

/// The folder with nearly the same name as a package; empty if no folder fits.
std::wstring NearFolder(const Package& package, const std::vector<std::wstring>& others)
{
    const std::wstring& tstrRefused = package.tstrRefused;
    const std::size_t uName = std::min(tstrRefused.find_first_not_of(L".\\/"), tstrRefused.size());
    return NearestOf(tstrRefused.empty() ? package.tstrDownloadPath : tstrRefused.substr(uName), others);
}

/// The folders that may be meant by the names of missing packages.
struct MeantFolders {
    std::wstring tstrProduct{};
    std::wstring tstrResource{};
};

/// Besides a name that is nearly the same, the only folder that is left counts, and for texts one with a string table.
MeantFolders FindMeant(const Update& update, const std::vector<std::wstring>& others,
                       const std::vector<std::wstring>& texts)
{
    std::vector<std::wstring> programs;
    std::ranges::set_difference(others, texts, std::back_inserter(programs));
    MeantFolders meant{NearFolder(update.Product(), others), NearFolder(update.Resource(), others)};
    if (meant.tstrProduct.empty() && programs.size() == 1) meant.tstrProduct = programs.front();
    if (meant.tstrResource.empty() && !texts.empty()) meant.tstrResource = texts.front();
    if (meant.tstrResource.empty() && others.size() == 1) meant.tstrResource = others.front();
    return meant;
}

/// Reports packages that are not deployed. An install folder may have those of earlier updates.
void CheckUnnamedPackages(const Update& update, const std::vector<std::wstring>& others,
                          const std::set<std::wstring>& meant, Report& report)
{
    if (update.InstalledFolder() && update.InstalledFolder()->Text() == update.Root().Text()) return;
    for (const std::wstring& tstrName : others) {
        const bool bInOther = std::any_of(others.begin(), others.end(), [&](const std::wstring& tstrOther) {
            return String::StartsWithNoCase(tstrName, tstrOther + L"\\");
        });
        if (bInOther || meant.contains(tstrName)) continue;
        report.AddAs(Severity::eError, Rule::eNoStepLooksThere, kComponents + tstrName, {},
                     std::wstring(L"neither ") + ProductDownloadKey().szKey + L" nor " + ResourceDownloadKey().szKey +
                         L" of UpdateInfo.ini names this package: the agent does not deploy it");
    }
}

/// What became of the names of the packages.
struct NamedPackages {
    MeantFolders meant{};        ///< where the named folders are missing
    bool bProductFound = false;  ///< a finding tells that the product package is missing
};

/// Without the package that the update information names, the agent ignores other folders below "Component\\".
NamedPackages CheckDownloadPaths(const Update& update, Report& report)
{
    IniScan info;
    DWORD dwError = ERROR_SUCCESS;
    const bool bNoInfo = !info.Read(update.FullPath(kUpdateInfoFile), &dwError) && dwError == ERROR_FILE_NOT_FOUND;
    const std::vector<std::wstring> others = UnnamedFolders(update);
    std::vector<std::wstring> texts;
    std::ranges::copy_if(others, std::back_inserter(texts), [&](const std::wstring& tstrName) {
        return HasStringTable(update.FullPath(kComponents + tstrName + L"\\"));
    });
    const MeantFolders folders = FindMeant(update, others, texts);
    const MissingPackage product{update.Product(), ProductDownloadKey(), L"product", folders.tstrProduct};
    const MissingPackage resource{update.Resource(), ResourceDownloadKey(), L"resource", folders.tstrResource};
    std::set<std::wstring> meant;  // each has a finding of its own already
    NamedPackages named;
    for (const MissingPackage* pMissing : {&product, &resource}) {
        const bool bProduct = pMissing == &product;
        if (pMissing->package.bThere && pMissing->package.tstrRefused.empty()) continue;
        const bool bNamed = CheckNamedPackage(update, info, *pMissing, report);
        const bool bMeant = bProduct ? !others.empty() : (update.Product().bThere || bNoInfo) && !texts.empty();
        if (!bNamed && !bMeant) continue;
        const std::wstring& tstrMeant = pMissing->tstrMeant;
        if (meant.insert(tstrMeant).second) (bProduct ? named.meant.tstrProduct : named.meant.tstrResource) = tstrMeant;
        // Without the file both names are missing for one reason.
        const bool bTold = bNamed || (bNoInfo && named.bProductFound);
        named.bProductFound = named.bProductFound || bProduct;
        if (bTold) continue;
        report.AddAs(Severity::eError, Rule::eNoStepLooksThere, kUpdateInfoFile, {},
                     (bNoInfo ? L"there is no UpdateInfo.ini, which the update client writes to name the packages: the "
                              : L"the ") +
                         std::wstring(pMissing->szKind) + L" package is looked for in \"" +
                         update.Root().Relative(pMissing->package.folder) +
                         L"\", which is not there: the agent does not deploy it",
                     tstrMeant);
    }
    CheckUnnamedPackages(update, others, meant, report);
    return named;
}

/// Sections that are carried out with the product package. Of the update information B042 tells the case that only the
/// settings folder is missing.
void CheckSections(const LintContext& context, Report& report)
{
    const Update& update = context.update;
    const bool bPackage = update.Product().bThere;
    const bool bSettings = Storage::Directory::IsExisted(update.FullPath(update.SettingFolder()));
    const std::pair<const wchar_t*, bool> sections[] = {
        {L"QOR_REGISTRY_PATCH", bPackage}, {L"QOR_CONFIG_MERGE", bSettings}, {L"UPDATE_INFO", bPackage}};
    for (const auto& [szSection, bCarriedOut] : sections) {
        const IniSection* const pSection = context.instructions.Find(szSection);
        if (bCarriedOut || !pSection || pSection->records.empty()) continue;
        const std::wstring tstrMissing =
            bPackage ? update.SettingFolder().Text() : update.Root().Relative(update.Product().folder);
        report.Add(Rule::eSectionWithoutPackage, kInstructionFile, pSection->place,
                   L"[" + pSection->tstrName + L"] is ignored, because there is no folder \"" + tstrMissing + L"\"");
    }
}

/// The folder of the program's own files: the platform's, and in it the component's name once more.
std::wstring ProgramFolder(const Update& update)
{
    const PackageLayout::BaseFolders bases(WindowsMachine(),
                                           {.tstrInstallDir = {},
                                            .tstrProductDownloadDir = update.Product().folder,
                                            .tstrProductDownloadPath = update.Product().tstrDownloadPath,
                                            .tstrResourceDownloadDir = {}});
    return update.Root().Relative(bases.FolderOf({PackageLayout::Base::ePackage, L""}));
}

/// The platform's folder, which contains the folder of the program's own files.
std::wstring PlatformFolder(const Update& update)
{
    const std::wstring tstrInner = ProgramFolder(update);
    const std::size_t cchName = String::EnsureBackslash(update.Product().tstrDownloadPath).size();
    return tstrInner.substr(0, tstrInner.size() - std::min(cchName, tstrInner.size()));
}

/// The platform's folder where the one in it is missing, with the finding; else empty.
std::wstring CheckInnerFolder(const Update& update, Report& report)
{
    const std::wstring tstrInner = ProgramFolder(update);
    std::wstring tstrPlatform = PlatformFolder(update);
    const std::vector<std::wstring>& files = update.Files();
    const auto isIn = [&](const std::wstring& tstrFolder) {
        return std::find_if(files.begin(), files.end(),
                            [&](const std::wstring& tstrFile) { return String::IsBelow(tstrFile, tstrFolder); });
    };
    const auto itMisplaced = isIn(tstrPlatform);
    if (itMisplaced == files.end() || isIn(tstrInner) != files.end()) return {};
    report.Add(Rule::eNoInnerFolder, *itMisplaced, {},
               L"the files for this platform are looked for in \"" + tstrInner + L"\" only: nothing of them arrives",
               tstrInner + itMisplaced->substr(itMisplaced->rfind(L'\\') + 1));
    return tstrPlatform;
}

/// The folder that may have been meant by one below a package's: one above it of which only the files are taken, or one
/// beside it of nearly the same name.
std::wstring NearestSource(const std::wstring& tstrFolder, const std::vector<std::wstring>& sources)
{
    if (tstrFolder.empty()) return {};
    const auto parentOf = [](std::wstring tstrPath) {
        tstrPath.pop_back();
        return String::FolderPart(tstrPath);
    };
    const std::wstring tstrParent = parentOf(tstrFolder);
    std::wstring tstrAbove;
    std::vector<std::wstring> beside;
    for (const std::wstring& tstrSource : sources) {
        if (String::IsBelow(tstrFolder, tstrSource) && tstrSource.size() > tstrAbove.size()) tstrAbove = tstrSource;
        if (String::EqualsNoCase(parentOf(tstrSource), tstrParent))
            beside.push_back(tstrSource.substr(tstrParent.size()));
    }
    const std::wstring tstrNear = NearestOf(tstrFolder.substr(tstrParent.size()), beside);
    return tstrNear.empty() ? tstrAbove : tstrParent + tstrNear;
}

/// Files of which no folder copy knows, one finding for each folder.
void CheckUnusedFiles(const Update& update, const std::wstring& tstrMisplaced, Report& report)
{
    std::set<std::wstring_view> delivered;
    for (const Delivery& delivery : update.Deliveries()) delivered.insert(delivery.tstrContent);
    const std::wstring tstrPackage = update.Root().Relative(update.Product().folder);
    std::map<std::wstring, std::vector<std::wstring>> unused;
    for (const std::wstring& tstrFile : update.Files()) {
        // The other platform's files are for other machines.
        if (String::IsBelow(tstrFile, tstrMisplaced) || String::IsBelow(tstrFile, tstrPackage + L"32bit\\")) continue;
        if (!delivered.contains(tstrFile)) unused[String::FolderPart(tstrFile)].push_back(tstrFile);
    }
    std::vector<std::wstring> sources;
    for (const PackageLayout::FolderCopy& copy :
         PackageLayout::ListCopies(WindowsMachine(), {.tstrInstallDir = {},
                                                     .tstrProductDownloadDir = update.Product().folder,
                                                     .tstrProductDownloadPath = update.Product().tstrDownloadPath,
                                                     .tstrResourceDownloadDir = {}})) {
        if (!update.Product().folder.Contains(copy.tstrSourceDir)) continue;
        sources.push_back(update.Product().folder.Relative(copy.tstrSourceDir));
    }
    const std::wstring tstrPlatform = PlatformFolder(update);
    for (const auto& [tstrFolder, files] : unused) {
        if (String::EqualsNoCase(tstrFolder, tstrPlatform)) {
            report.Add(Rule::eNoInnerFolder, files.front(), {},
                       L"the files for this platform are looked for in \"" + ProgramFolder(update) +
                           L"\" only: files beside it stay in the download folder",
                       ProgramFolder(update) + files.front().substr(tstrFolder.size()));
            continue;
        }
        const std::wstring tstrBelow =
            String::IsBelow(tstrFolder, tstrPackage) ? tstrFolder.substr(tstrPackage.size()) : L"";
        const std::wstring tstrCount =
            files.size() == 1 ? L"its file stays" : L"its " + std::to_wstring(files.size()) + L" files stay";
        report.Add(Rule::eNoStepLooksThere, files.front(), {},
                   L"no deploy step looks at this folder: " + tstrCount + L" in the download folder",
                   NearestSource(tstrBelow, sources));
    }
}

/// B075: what is copied at once keeps its attributes, and a read-only file is not written over.
void CheckReadOnly(const Update& update, Report& report)
{
    std::set<std::wstring> found;
    for (const Delivery& delivery : update.Deliveries()) {
        if (delivery.eWhen != PackageLayout::When::eNow) continue;
        const DWORD dwAttributes = ::GetFileAttributesW(update.FullPath(delivery.tstrSource).c_str());
        const bool bReadOnly = dwAttributes != INVALID_FILE_ATTRIBUTES && (dwAttributes & FILE_ATTRIBUTE_READONLY);
        if (bReadOnly) found.insert(delivery.tstrSource);
    }
    for (const std::wstring& tstrFile : found) {
        report.Add(
            Rule::eReadOnlyAtOnce, tstrFile, {},
            L"the file is read-only and copied at once, so the next update cannot replace it: take the attribute away");
    }
}

/// B077 and B078: files that come by mistake.
void CheckStrayFiles(const Update& update, Report& report)
{
    constexpr wchar_t kSystemFiles[] = L"Thumbs.db;desktop.ini;.DS_Store;._*;~$*;*.swp;*.orig;*.rej";
    constexpr wchar_t kPrograms[] =
        L"*.exe;*.dll;*.sys;*.ocx;*.com;*.msi;*.cpl;*.cmd;*.bat;*.ps1;*.psm1;*.vbs;*.wsf;*.reg";
    std::set<std::wstring> reported;
    for (const Delivery& delivery : update.Deliveries()) {
        const std::wstring& tstrFile = delivery.tstrContent;
        const std::wstring tstrName = tstrFile.substr(String::FolderPart(tstrFile).size());
        if (tstrFile.empty() || !reported.insert(tstrFile).second) continue;
        if (::PathMatchSpecW(tstrName.c_str(), kSystemFiles)) {
            report.Add(Rule::eNoProductFile, tstrFile, {},
                       L"\"" + tstrName + L"\" is not a product file, but would be installed: delete it");
        }
        WIN32_FILE_ATTRIBUTE_DATA data{};
        const bool bEmpty = ::PathMatchSpecW(tstrName.c_str(), kPrograms) &&
                            ::GetFileAttributesExW(update.FullPath(tstrFile).c_str(), GetFileExInfoStandard, &data) &&
                            data.nFileSizeLow == 0 && data.nFileSizeHigh == 0;
        if (bEmpty)
            report.Add(Rule::eEmptyProgram, tstrFile, {}, L"the program, library or script is empty: it has 0 bytes");
    }
}

}  // namespace

Update AsMeant(const Update& update)
{
    // An install folder may have packages of earlier updates.
    const bool bInstalled = update.InstalledFolder() && update.InstalledFolder()->Text() == update.Root().Text();
    Report unused;
    const auto [meant, bProductFound] = bInstalled ? NamedPackages() : CheckDownloadPaths(update, unused);
    const bool bAsNamed = meant.tstrProduct.empty() && meant.tstrResource.empty();
    return bAsNamed ? update : update.With(meant.tstrProduct, meant.tstrResource);
}

void CheckPackages(const LintContext& context, Report& report)
{
    const bool bProductFound = CheckDownloadPaths(context.update, report).bProductFound;
    const Update meant = AsMeant(context.update);
    const LintContext asMeant{meant, context.instructions, context.languages};
    if (meant.Product().bThere || !bProductFound) CheckSections(asMeant, report);
    CheckUnusedFiles(meant, CheckInnerFolder(meant, report), report);
    CheckReadOnly(meant, report);
    CheckStrayFiles(meant, report);
}

}  // namespace Check
