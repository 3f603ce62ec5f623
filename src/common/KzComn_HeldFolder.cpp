#include "common/KzComn_HeldFolder.h"

#include "common/KzComn_File.h"
#include "common/KzComn_Retry.h"
#include "common/KzComn_String.h"

#include <algorithm>
#include <cwchar>

namespace KzCommon::Storage::Directory {

namespace {

/// Opens a folder so that it can be neither moved nor deleted.
UniqueFile OpenFolder(const std::wstring& tstrPath, DWORD& dwError)
{
    constexpr DWORD kFlags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;
    constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE;
    UniqueFile folder(
        ::CreateFileW(tstrPath.c_str(), FILE_LIST_DIRECTORY, kShare, nullptr, OPEN_EXISTING, kFlags, nullptr));
    dwError = folder ? ERROR_SUCCESS : ::GetLastError();
    if (dwError != ERROR_ACCESS_DENIED) return folder;
    // One that may be passed but not listed cannot be held; what IsHomeOf() tells still stands.
    folder.Reset(
        ::CreateFileW(tstrPath.c_str(), FILE_READ_ATTRIBUTES, kShare, nullptr, OPEN_EXISTING, kFlags, nullptr));
    dwError = folder ? ERROR_SUCCESS : ::GetLastError();
    return folder;
}

/// Opens one folder more, which is waited for while others hold it.
bool Add(const std::wstring& tstrPath, std::vector<UniqueFile>& folders, DWORD* pdwError)
{
    UniqueFile folder;
    const auto open = [&](DWORD& dwError) {
        folder = OpenFolder(tstrPath, dwError);
        return folder.IsValid();
    };
    DWORD dwError = ERROR_SUCCESS;
    if (!TryWhileHeld(open, &dwError)) {
        return Fail(dwError == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_PATH_NOT_FOUND} : dwError, pdwError);
    }
    folders.push_back(std::move(folder));
    return true;
}

/// Where an open file or folder really lies, drives by their devices' names; empty when the system cannot tell.
std::wstring FinalPathOf(HANDLE hFile)
{
    constexpr DWORD kFlags = FILE_NAME_NORMALIZED | VOLUME_NAME_NT;
    std::wstring tstrPath(MAX_PATH, L'\0');
    DWORD cch = ::GetFinalPathNameByHandleW(hFile, tstrPath.data(), static_cast<DWORD>(tstrPath.size()), kFlags);
    if (cch >= tstrPath.size()) {
        tstrPath.resize(cch);
        cch = ::GetFinalPathNameByHandleW(hFile, tstrPath.data(), cch, kFlags);
    }
    tstrPath.resize(cch < tstrPath.size() ? cch : 0);
    return tstrPath;
}

std::wstring WithoutBackslash(std::wstring tstrPath)
{
    while (!tstrPath.empty() && tstrPath.back() == L'\\') tstrPath.pop_back();
    return tstrPath;
}

/// The name, with backslash at its end, of the volume that Windows knows to be mounted at the folder; empty for none.
/// Only administrators can tell Windows; a junction that somebody else makes to a volume is not in its list.
std::wstring MountedVolume(const std::wstring& tstrFolder)
{
    const std::wstring tstrMount = String::EnsureBackslash(tstrFolder);
    wchar_t szVolume[MAX_PATH] = {};
    if (!::GetVolumeNameForVolumeMountPointW(tstrMount.c_str(), szVolume, MAX_PATH)) return {};
    DWORD cch = 0;
    ::GetVolumePathNamesForVolumeNameW(szVolume, nullptr, 0, &cch);
    std::wstring tstrPaths(cch, L'\0');
    if (cch == 0 || !::GetVolumePathNamesForVolumeNameW(szVolume, tstrPaths.data(), cch, &cch)) return {};
    for (const wchar_t* sz = tstrPaths.c_str(); *sz; sz += std::wcslen(sz) + 1) {
        if (String::EqualsNoCase(sz, tstrMount)) return szVolume;
    }
    return {};
}

/// False when a folder is a link that somebody may have pointed anywhere. `tstrVolume` is the volume that an
/// administrator mounted there, empty for a folder of its own.
bool IsPassable(const std::wstring& tstrFolder, std::wstring& tstrVolume)
{
    tstrVolume.clear();
    if (!IsLink(tstrFolder)) return true;
    tstrVolume = MountedVolume(tstrFolder);
    return !tstrVolume.empty();
}

}  // namespace

bool LeadsThroughLink(const std::wstring& tstrFolder)
{
    const std::wstring tstrFull = FullPath(tstrFolder);
    std::wstring tstrVolume;
    for (std::size_t uEnd = RootLength(tstrFull); uEnd < tstrFull.size();) {
        uEnd = std::min(tstrFull.find(L'\\', uEnd + 1), tstrFull.size());
        if (!IsPassable(tstrFull.substr(0, uEnd), tstrVolume)) return true;
    }
    return false;
}

bool HeldFolder::Hold(const std::wstring& tstrFolder, DWORD* pdwError)
{
    const std::wstring tstrFull = FullPath(tstrFolder);
    std::vector<UniqueFile> folders;
    // Each is looked at while it and those above it are held: what is said of it then stays true.
    std::size_t uEnd = RootLength(tstrFull);
    for (bool bRoot = true;; bRoot = false) {
        const std::wstring tstrPath = tstrFull.substr(0, uEnd);
        if (!Add(bRoot ? tstrPath + L'\\' : tstrPath, folders, pdwError)) return false;
        std::wstring tstrVolume;
        if (!bRoot && !IsPassable(tstrPath, tstrVolume)) return Fail(kStoppedOnLink, pdwError);
        // What a volume holds lies in its root folder, not in the one that it is mounted at.
        if (!tstrVolume.empty() && !Add(tstrVolume, folders, pdwError)) return false;
        if (uEnd >= tstrFull.size()) break;
        uEnd = std::min(tstrFull.find(L'\\', uEnd + 1), tstrFull.size());
    }
    m_tstrFinalPath = WithoutBackslash(FinalPathOf(folders.back().Get()));
    m_folders = std::move(folders);
    return true;
}

bool HeldFolder::IsHomeOf(HANDLE hFile) const
{
    if (m_tstrFinalPath.empty()) return true;
    const std::wstring tstrFile = FinalPathOf(hFile);
    return String::EqualsNoCase(tstrFile.substr(0, tstrFile.find_last_of(L'\\')), m_tstrFinalPath);
}

}  // namespace KzCommon::Storage::Directory
