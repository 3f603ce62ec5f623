#include "check/update/Update.h"

#include "agent/DownloadPath.h"
#include "common/KzComn_File.h"
#include "common/KzComn_IniFile.h"
#include "common/KzComn_Result.h"
#include "common/KzComn_String.h"
#include "common/KzComn_WindowsMachine.h"
#include "check/update/Instructions.h"

#include <shlwapi.h>

#include <set>

using namespace KzCommon;

namespace Check {

namespace {

Package FindPackage(const Folder& root, const DownloadKey& key)
{
    Package package;
    if (!ReadDownloadPath(WindowsMachine(), root / kUpdateInfoFile, key, package.tstrDownloadPath)) {
        package.tstrDownloadPath = key.szDefault;
    }
    static_cast<void>(Storage::Guarded(nullptr, [&] {
        Storage::IniFile updateInfo;
        updateInfo.Open(root / kUpdateInfoFile);
        const std::wstring tstrNamed = updateInfo.ReadString(L"COMPONENT_LIST", key.szKey, {});
        std::wstring tstrPath = tstrNamed;
        if (!tstrNamed.empty() && !NormalizeDownloadPath(tstrPath)) package.tstrRefused = tstrNamed;
    }));
    package.folder = root / kComponents + package.tstrDownloadPath;
    package.bThere = Storage::Directory::IsExisted(package.folder);
    return package;
}

}  // namespace

bool Update::Open(const std::wstring& tstrFolder, const std::optional<std::wstring>& optInstalled, DWORD* pdwError)
{
    m_tstrGiven = tstrFolder;
    m_root = Storage::Directory::FullPath(tstrFolder);
    const bool bFolder = m_root.IsKnown() && Storage::Directory::IsExisted(m_root);
    if (!bFolder) return Storage::Fail(ERROR_PATH_NOT_FOUND, pdwError);
    const bool bPackages = Storage::Directory::IsExisted(m_root / kComponents);
    if (!bPackages && !Storage::File::IsExisted(m_root / kInstructionFile)) {
        return Storage::Fail(ERROR_FILE_NOT_FOUND, pdwError);
    }

    if (optInstalled) {
        m_optInstalled = Storage::Directory::FullPath(*optInstalled);
    } else if (Storage::File::IsExisted(m_root / L"config.xml")) {
        m_optInstalled = m_root;  // an update's own files are below the packages
    }
    if (m_optInstalled && !Storage::Directory::IsExisted(*m_optInstalled)) {
        return Storage::Fail(ERROR_PATH_NOT_FOUND, pdwError);
    }
    m_product = FindPackage(m_root, ProductDownloadKey());
    m_resource = FindPackage(m_root, ResourceDownloadKey());
    m_files.clear();
    m_optDeliveries.reset();
    for (const Package* pPackage : {&m_product, &m_resource}) {
        if (pPackage->bThere && !ListFiles(pPackage->folder, pdwError)) return false;
    }
    return true;
}

Update Update::With(const std::wstring& tstrProduct, const std::wstring& tstrResource) const
{
    Update update = *this;
    update.m_files.clear();
    update.m_optDeliveries.reset();
    for (const auto& [pPackage, pName] :
         {std::pair(&update.m_product, &tstrProduct), std::pair(&update.m_resource, &tstrResource)}) {
        if (!pName->empty()) {
            const Folder folder = m_root / kComponents + *pName;
            // The name appears once more in the package: where that is the named one, only the folder has another name.
            const bool bInner = Storage::Directory::IsExisted(folder / L"64bit\\" + pPackage->tstrDownloadPath);
            *pPackage = {bInner ? pPackage->tstrDownloadPath : *pName, folder, {}, true};
        }
        if (pPackage->bThere) static_cast<void>(update.ListFiles(pPackage->folder, nullptr));
    }
    return update;
}

std::vector<std::wstring> Update::FilesIn(const Folder& folder, const wchar_t* szPattern) const
{
    std::vector<std::wstring> found;
    for (const std::wstring& tstrFile : m_files) {
        if (!folder.Contains(tstrFile)) continue;
        const std::wstring tstrName = folder.Relative(tstrFile);
        if (tstrName.find(L'\\') == std::wstring::npos && ::PathMatchSpecW(tstrName.c_str(), szPattern)) {
            found.push_back(tstrFile);
        }
    }
    return found;
}

Folder Update::SettingFolder() const
{
    return m_root.Relative(m_product.folder / L"Share\\Setting\\");
}

std::vector<Folder> Update::ResourceFolders() const
{
    return {m_root.Relative(m_product.folder / L"Share\\Resource\\"), m_root.Relative(m_resource.folder)};
}

const std::vector<Delivery>& Update::Deliveries() const
{
    if (!m_optDeliveries) m_optDeliveries = FindDeliveries();
    return *m_optDeliveries;
}

std::vector<Delivery> Update::FindDeliveries() const
{
    // The folder of the checked update may be deeper than the product's folder.
    const std::wstring tstrRoot = AtAnyLength(m_root);
    const auto below = [&](const Package& package) {
        return package.bThere ? tstrRoot + m_root.Relative(package.folder) : std::wstring();
    };
    std::vector<Delivery> deliveries =
        ListDeliveries(WindowsMachine(), {.tstrInstallDir = m_optInstalled.value_or(kUsualInstallFolder),
                                          .tstrProductDownloadDir = below(m_product),
                                          .tstrProductDownloadPath = m_product.tstrDownloadPath,
                                          .tstrResourceDownloadDir = below(m_resource)});
    const std::set<std::wstring_view, String::OrdinalNoCase> files(m_files.begin(), m_files.end());
    const auto nameOf = [&](const std::wstring& tstrPath) -> std::wstring {
        const std::wstring tstrName = tstrPath.substr(std::min(tstrRoot.size(), tstrPath.size()));
        const auto itFile = files.find(tstrName);
        return std::wstring(itFile == files.end() ? std::wstring_view(tstrName) : *itFile);
    };
    for (Delivery& delivery : deliveries) {
        const bool bItself = delivery.tstrContent == delivery.tstrSource;
        delivery.tstrSource = nameOf(delivery.tstrSource);
        delivery.tstrContent = bItself ? delivery.tstrSource : nameOf(delivery.tstrContent);
    }
    for (const ::Section& section : kSections) {
        for (const SectionKey& key : section.keys) AddCopies(section, key, deliveries);
    }
    return deliveries;
}

/// Adds the files that the records of a key copy. Those from elsewhere have no content in the update.
void Update::AddCopies(const ::Section& section, const SectionKey& key, std::vector<Delivery>& deliveries) const
{
    const FileOp eOp = FileOpOf(key.eEffect);
    const std::optional<FileOpTraits> optTraits = TraitsOf(eOp);
    if (!optTraits || optTraits->eAction != Action::eCopy) return;
    const CustomerFolders folders(m_optInstalled.value_or(kUsualInstallFolder), m_product.tstrDownloadPath);
    std::vector<Delivery> copies;
    ForEachRecord(ReadRecords(*this, section), key.szKey, [&](const std::wstring& tstrRecord) {
        const FileRecord record = ParseFileRecord(eOp, folders.Expand(tstrRecord));
        if (!IsRecordLengthValid(tstrRecord) || record.eRefusal != FileRefusal::eNone) return;
        Delivery& copy = copies.emplace_back();
        copy.tstrSource = folders.InstalledDir().Relative(Storage::Directory::FullPath(record.tstrSource));
        const auto itFile = std::ranges::find_if(
            m_files, [&](const std::wstring& tstrFile) { return String::EqualsNoCase(tstrFile, copy.tstrSource); });
        if (itFile != m_files.end()) copy.tstrSource = *itFile;
        // The run changes some files before they are copied.
        const bool bChanged = std::ranges::any_of(deliveries, [&](const Delivery& delivery) {
            const bool bSame = String::EqualsNoCase(delivery.tstrSource, copy.tstrSource);
            return bSame && (delivery.bMerged || delivery.tstrContent != delivery.tstrSource);
        });
        if (itFile != m_files.end() && !bChanged) copy.tstrContent = copy.tstrSource;
        copy.tstrDestination = Storage::Directory::FullPath(record.tstrPath);
        copy.tstrPlace = ParseFileRecord(eOp, tstrRecord).tstrPath;
        copy.tstrBelow = folders.InstalledDir().Relative(copy.tstrDestination);
        copy.eWhen = optTraits->bAtRestart ? PackageLayout::When::eAtRestart : PackageLayout::When::eNow;
    });
    const bool bFirst = section.ePhase == RunPhase::eBeforeDeployment;
    deliveries.insert(bFirst ? deliveries.begin() : deliveries.end(), copies.begin(), copies.end());
}

bool Update::ListFiles(const std::wstring& tstrPackage, DWORD* pdwError)
{
    std::vector<std::wstring> folders{tstrPackage};
    while (!folders.empty()) {
        const std::wstring tstrFolder = folders.back();
        folders.pop_back();
        std::vector<std::wstring> below;
        DWORD dwError = ERROR_SUCCESS;
        const bool bListed = Storage::Directory::ForEachEntry(
            LongPath(tstrFolder), L"*",
            [&](const Storage::Directory::Entry& entry) {
                if (entry.bLink) return;
                const std::wstring tstrPath = tstrFolder + entry.tstrName;
                if (entry.bFolder) {
                    below.push_back(tstrPath + L"\\");
                } else {
                    m_files.push_back(m_root.Relative(tstrPath));
                }
            },
            &dwError);
        if (!bListed && dwError != ERROR_FILE_NOT_FOUND) return Storage::Fail(dwError, pdwError);
        folders.insert(folders.end(), below.rbegin(), below.rend());
    }
    return true;
}

}  // namespace Check
