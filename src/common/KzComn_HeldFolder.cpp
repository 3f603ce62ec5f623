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

/// Whether a volume that Windows knows is mounted at the folder. Only administrators can tell Windows; a junction that
/// somebody else makes to a volume is not in its list.
bool IsMountedVolume(const std::wstring& tstrFolder)
{
    const std::wstring tstrMount = String::EnsureBackslash(tstrFolder);
    wchar_t szVolume[MAX_PATH] = {};
    if (!::GetVolumeNameForVolumeMountPointW(tstrMount.c_str(), szVolume, MAX_PATH)) return false;
    DWORD cch = 0;
    ::GetVolumePathNamesForVolumeNameW(szVolume, nullptr, 0, &cch);
    std::wstring tstrPaths(cch, L'\0');
    if (cch == 0 || !::GetVolumePathNamesForVolumeNameW(szVolume, tstrPaths.data(), cch, &cch)) return false;
    for (const wchar_t* sz = tstrPaths.c_str(); *sz; sz += std::wcslen(sz) + 1) {
        if (String::EqualsNoCase(sz, tstrMount)) return true;
    }
    return false;
}

/// Whether a folder is a link that somebody may have pointed anywhere.
bool IsRefused(const std::wstring& tstrFolder)
{
    return IsLink(tstrFolder) && !IsMountedVolume(tstrFolder);
}

}  // namespace

bool LeadsThroughLink(const std::wstring& tstrFolder)
{
    const std::wstring tstrFull = FullPath(tstrFolder);
    for (std::size_t uEnd = RootLength(tstrFull); uEnd < tstrFull.size();) {
        uEnd = std::min(tstrFull.find(L'\\', uEnd + 1), tstrFull.size());
        if (IsRefused(tstrFull.substr(0, uEnd))) return true;
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
        const auto open = [&](DWORD& dwError) {
            folders.push_back(OpenFolder(bRoot ? tstrPath + L'\\' : tstrPath, dwError));
            if (!folders.back()) folders.pop_back();
            return dwError == ERROR_SUCCESS;
        };
        DWORD dwError = ERROR_SUCCESS;
        if (!TryWhileHeld(open, &dwError)) {
            return Fail(dwError == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_PATH_NOT_FOUND} : dwError, pdwError);
        }
        if (!bRoot && IsRefused(tstrPath)) return Fail(kStoppedOnLink, pdwError);
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
