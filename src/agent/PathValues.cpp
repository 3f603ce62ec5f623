#include "agent/PathValues.h"

#include "agent/DownloadPath.h"

#include "common/Frwk_Utility.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"

#include <objbase.h>
#include <rpc.h>

#include <algorithm>
#include <iterator>

using namespace KzCommon;

namespace {

constexpr std::wstring_view kUserProfile = L"%USERPROFILE%";

/// "LogFolder" of one session kind's trace settings; empty when missing.
std::wstring ReadLogFolder(const Machine& machine, const wchar_t* szSessionKey)
{
    RegistryData folder = std::wstring();
    const RegistryPlace place{
        .tstrKeyPath = szSessionKey, .tstrName = L"LogFolder", .dwView = Frwk::Utility::ProductRegistryView()};
    static_cast<void>(machine.ReadValue(place, folder, nullptr));
    return String::EnsureBackslash(std::get<std::wstring>(folder));
}

/// A folder's path without ".." and with the long names of its folders.
std::wstring LongPath(const std::wstring& tstrFolder)
{
    const std::wstring tstrFull = Storage::Directory::FullPath(tstrFolder);
    std::wstring tstrLong(::GetLongPathNameW(tstrFull.c_str(), nullptr, 0), L'\0');
    tstrLong.resize(::GetLongPathNameW(tstrFull.c_str(), tstrLong.data(), static_cast<DWORD>(tstrLong.size())));
    return tstrLong.empty() ? tstrFull : tstrLong;
}

}  // namespace

void ReplacePlaceholders(std::wstring& tstrText, const PlaceholderFolders& folders)
{
    for (const Placeholder& placeholder : kPlaceholders) {
        const std::wstring* const pFolder = folders.*placeholder.pFolder;
        if (pFolder) String::ReplaceAll(tstrText, placeholder.szText, *pFolder);
    }
}

void PathValues::ReadLogFolders()
{
    m_tstrInteractiveLogDir = ReadLogFolder(m_machine, L"Software\\Kazmere\\KZVLT\\1\\DebugLog\\InteractiveSession");
    Trace(kTraceInfo, L"FrameworkDeployAgent::GetInteractiveLogPath - InteractiveLogPath => %s",
          m_tstrInteractiveLogDir.c_str());

    m_tstrServiceLogDir = ReadLogFolder(m_machine, L"Software\\Kazmere\\KZVLT\\1\\DebugLog\\ServiceSession");
    Trace(kTraceInfo, L"FrameworkDeployAgent::GetServiceLogPath - ServiceLogPath => %s", m_tstrServiceLogDir.c_str());

    m_tstrInstallerLogDir = String::FolderBelow(m_machine.FolderOf(KnownFolder::eWindows), L"Temp");
    Trace(kTraceInfo, L"FrameworkDeployAgent::GetInstallerLogPath - SystemLogPath => %s",
          m_tstrInstallerLogDir.c_str());

    const std::wstring tstrProtected =
        ReadLogFolder(m_machine, L"Software\\Kazmere\\KZVLT\\1\\DebugLog\\ProtectedSession");
    Trace(kTraceInfo, L"FrameworkDeployAgent::GetProtectedLogPath - ProtectedLogPath => %s", tstrProtected.c_str());
    WidenProtectedLogFolder(tstrProtected);
}

void PathValues::WidenProtectedLogFolder(const std::wstring& tstrConfigured)
{
    m_protectedLogDirs.clear();
    if (!tstrConfigured.starts_with(kUserProfile)) {
        m_protectedLogDirs.push_back(tstrConfigured);
        return;
    }
    // The character after the variable is dropped in any case, with any further backslashes.
    const std::size_t uRest = tstrConfigured.find_first_not_of(L'\\', kUserProfile.size() + 1);
    const std::wstring tstrRest = uRest == std::wstring::npos ? std::wstring() : tstrConfigured.substr(uRest);

    std::vector<std::wstring> profiles;
    DWORD dwError = ERROR_SUCCESS;
    if (!m_machine.EnumUserProfileFolders(profiles, &dwError)) {
        Trace(kTraceError,
              L"FrameworkDeployAgent::GetProtectedLogPath - Frwk::Utility::EnumUserProfileFolders() failed. "
              L"error[0x%08x]",
              dwError);
        return;
    }
    for (const std::wstring& tstrProfile : profiles)
        m_protectedLogDirs.push_back(String::FolderBelow(tstrProfile, tstrRest));
}

void PathValues::ReadProductFolders()
{
    m_tstrInstallDir = Frwk::Utility::GetInstalledFolder(m_machine);
    m_tstrProductDownloadPath.clear();
    m_tstrProductDownloadDir.clear();
    std::wstring tstrPath;
    if (!ReadDownloadPath(m_machine, UpdateInfoFile(), ProductDownloadKey(), tstrPath)) return;
    TakeProductFolders(m_tstrInstallDir, std::move(tstrPath));
}

void PathValues::TakeProductFolders(std::wstring tstrInstallDir, std::wstring tstrDownloadPath)
{
    m_tstrInstallDir = std::move(tstrInstallDir);
    m_tstrProductDownloadPath = std::move(tstrDownloadPath);
    m_tstrProductDownloadDir = String::FolderBelow(ComponentDir(), m_tstrProductDownloadPath);
}

std::wstring PathValues::ComponentDir() const
{
    return String::FolderBelow(m_tstrInstallDir, L"Component");
}

std::wstring PathValues::ReadResourceDownloadDir() const
{
    std::wstring tstrPath;
    if (!ReadDownloadPath(m_machine, UpdateInfoFile(), ResourceDownloadKey(), tstrPath)) return {};
    return String::FolderBelow(ComponentDir(), tstrPath);
}

std::wstring PathValues::UpdateInfoFile() const
{
    return m_tstrInstallDir.empty() ? std::wstring() : m_tstrInstallDir + L"UpdateInfo.ini";
}

bool PathValues::IsKeptFile(const std::wstring& tstrPath) const
{
    const std::size_t cchFolder = String::FolderPart(tstrPath).size();
    return std::ranges::any_of(m_keptFiles, [&](const std::wstring& tstrKept) {
        const std::wstring tstrFolder = String::FolderPart(tstrKept);
        return String::EqualsNoCase(tstrKept.substr(tstrFolder.size()), tstrPath.substr(cchFolder)) &&
               String::EqualsNoCase(LongPath(tstrFolder), LongPath(tstrPath.substr(0, cchFolder)));
    });
}

const Volume& PathValues::VolumeOf(const std::wstring& tstrFolder) const
{
    const auto [itVolume, bNew] = m_volumes.try_emplace(tstrFolder);
    if (bNew) itVolume->second = m_machine.VolumeOf(tstrFolder);
    return itVolume->second;
}

bool PathValues::LeadsThroughLink(const std::wstring& tstrFolder) const
{
    const auto [itFolder, bNew] = m_linked.try_emplace(tstrFolder);
    if (bNew) itFolder->second = m_machine.LeadsThroughLink(tstrFolder);
    return itFolder->second;
}

void PathValues::ExpandPlaceholders(std::wstring& tstrText) const
{
    // Most texts have no placeholder, and reading the install folder takes longer than a whole registry record.
    if (tstrText.find(L'{') != std::wstring::npos)
        ExpandPlaceholders(tstrText, Frwk::Utility::GetInstalledFolder(m_machine));
}

void PathValues::ExpandPlaceholders(std::wstring& tstrText, const std::wstring& tstrInstalledDir) const
{
    ReplacePlaceholders(tstrText, FoldersOfPlaceholders(tstrInstalledDir));
}

PlaceholderFolders PathValues::FoldersOfPlaceholders(const std::wstring& tstrInstalledDir) const noexcept
{
    return {.pDownloadDir = &m_tstrProductDownloadDir,
            .pInstalledDir = &tstrInstalledDir,
            .pInstallerLogDir = &m_tstrInstallerLogDir,
            .pInteractiveLogDir = &m_tstrInteractiveLogDir,
            .pServiceLogDir = &m_tstrServiceLogDir,
            .pProtectedLogDir = m_protectedLogDirs.empty() ? nullptr : &m_protectedLogDirs.front()};
}

std::wstring MakeUniqueName()
{
    const wchar_t szFixedName[] = L"{0C6E93B1-7F24-4a8d-B1C5-E82A47D9F560}";
    GUID guid{};
    if (FAILED(::CoCreateGuid(&guid))) return szFixedName;
    RPC_WSTR szText = nullptr;
    if (::UuidToStringW(&guid, &szText) != RPC_S_OK || !szText) return szFixedName;
    std::wstring tstrName = reinterpret_cast<const wchar_t*>(szText);
    ::RpcStringFreeW(&szText);
    return tstrName;
}
