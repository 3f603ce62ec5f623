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

std::wstring FullFolder(const std::wstring& tstrFolder)
{
    return String::EnsureBackslash(Storage::Directory::FullPath(tstrFolder));
}

Package FindPackage(const std::wstring& tstrFolder, const DownloadKey& key)
{
    Package package;
    if (!ReadDownloadPath(WindowsMachine(), tstrFolder + kUpdateInfoFile, key, package.tstrDownloadPath)) {
        package.tstrDownloadPath = key.szDefault;
    }
    static_cast<void>(Storage::Guarded(nullptr, [&] {
        Storage::IniFile updateInfo;
        updateInfo.Open(tstrFolder + kUpdateInfoFile);
        const std::wstring tstrNamed = updateInfo.ReadString(L"COMPONENT_LIST", key.szKey, {});
        std::wstring tstrPath = tstrNamed;
        if (!tstrNamed.empty() && !NormalizeDownloadPath(tstrPath)) package.tstrRefused = tstrNamed;
    }));
    package.tstrFolder = String::FolderBelow(tstrFolder + kComponents, package.tstrDownloadPath);
    package.bThere = Storage::Directory::IsExisted(package.tstrFolder);
    return package;
}

}  // namespace

bool Update::Open(const std::wstring& tstrFolder, const std::optional<std::wstring>& optInstalled, DWORD* pdwError)
{
    m_tstrGiven = tstrFolder;
    m_tstrFolder = FullFolder(tstrFolder);
    const bool bFolder = !m_tstrFolder.empty() && Storage::Directory::IsExisted(m_tstrFolder);
    if (!bFolder) return Storage::Fail(ERROR_PATH_NOT_FOUND, pdwError);
    const bool bPackages = Storage::Directory::IsExisted(m_tstrFolder + kComponents);
    if (!bPackages && !Storage::File::IsExisted(m_tstrFolder + kInstructionFile)) {
        return Storage::Fail(ERROR_FILE_NOT_FOUND, pdwError);
    }

    if (optInstalled) {
        m_optInstalled = FullFolder(*optInstalled);
    } else if (Storage::File::IsExisted(m_tstrFolder + L"config.xml")) {
        m_optInstalled = m_tstrFolder;  // an update brings its own below the packages
    }
    if (m_optInstalled && !Storage::Directory::IsExisted(*m_optInstalled)) {
        return Storage::Fail(ERROR_PATH_NOT_FOUND, pdwError);
    }
    m_product = FindPackage(m_tstrFolder, ProductDownloadKey());
    m_resource = FindPackage(m_tstrFolder, ResourceDownloadKey());
    m_files.clear();
    m_optDeliveries.reset();
    for (const Package* pPackage : {&m_product, &m_resource}) {
        if (pPackage->bThere && !ListFiles(pPackage->tstrFolder, pdwError)) return false;
    }
    return true;
}

std::vector<std::wstring> Update::FilesIn(std::wstring_view tstrFolder, const wchar_t* szPattern) const
{
    std::vector<std::wstring> found;
    for (const std::wstring& tstrFile : m_files) {
        if (!String::IsBelow(tstrFile, tstrFolder)) continue;
        const std::wstring tstrName = tstrFile.substr(tstrFolder.size());
        if (tstrName.find(L'\\') == std::wstring::npos && ::PathMatchSpecW(tstrName.c_str(), szPattern)) {
            found.push_back(tstrFile);
        }
    }
    return found;
}

std::wstring Update::RelativeName(const std::wstring& tstrFull) const
{
    return String::IsBelow(tstrFull, m_tstrFolder) ? tstrFull.substr(m_tstrFolder.size()) : tstrFull;
}

std::wstring Update::SettingFolder() const
{
    return RelativeName(m_product.tstrFolder + L"Share\\Setting\\");
}

std::vector<std::wstring> Update::ResourceFolders() const
{
    return {RelativeName(m_product.tstrFolder + L"Share\\Resource\\"), RelativeName(m_resource.tstrFolder)};
}

const std::vector<Delivery>& Update::Deliveries() const
{
    if (!m_optDeliveries) m_optDeliveries = FindDeliveries();
    return *m_optDeliveries;
}

std::vector<Delivery> Update::FindDeliveries() const
{
    // The folder of an update that is being checked may be deeper than the one of the product.
    const std::wstring tstrRoot = AtAnyLength(m_tstrFolder);
    const auto below = [&](const Package& package) {
        return package.bThere ? tstrRoot + RelativeName(package.tstrFolder) : std::wstring();
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
    return deliveries;
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
                    m_files.push_back(RelativeName(tstrPath));
                }
            },
            &dwError);
        if (!bListed && dwError != ERROR_FILE_NOT_FOUND) return Storage::Fail(dwError, pdwError);
        folders.insert(folders.end(), below.rbegin(), below.rend());
    }
    return true;
}

}  // namespace Check
