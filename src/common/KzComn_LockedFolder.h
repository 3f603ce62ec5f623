// Prevents a folder from being replaced while it is in use. Has no other dependencies, because the trace library uses
// it as well.
#pragma once

#include "common/KzComn_FolderPath.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_LinkRule.h"
#include "common/KzComn_Retry.h"

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace KzCommon::Storage::Directory {

/// Keeps a folder and all folders above it open, so that none of them can be moved and replaced.
class LockedFolder {
public:
    /// Options of Hold().
    struct Way {
        bool bWait = true;                           ///< for folders in use, about two seconds
        bool bMake = false;                          ///< create missing folders
        SECURITY_ATTRIBUTES* pAttributes = nullptr;  ///< for created folders
    };

    /// Opens the folders of the path to `tstrFolder`, from its drive or share. False with the code: kStoppedOnLink
    /// (681) when one is a link that is refused (KzComn_LinkRule.h), because its creator can change its target;
    /// ERROR_PATH_NOT_FOUND (3) when one is missing. CreateFileW, CreateDirectoryW.
    [[nodiscard]] bool Hold(const std::wstring& tstrFolder, DWORD* pdwError, const Way& way);
    [[nodiscard]] bool Hold(const std::wstring& tstrFolder, DWORD* pdwError) { return Hold(tstrFolder, pdwError, {}); }

    /// Whether an open file is directly in the folder. A user with write access can turn even a locked folder into a
    /// junction; a file opened by its path is then elsewhere. GetFinalPathNameByHandleW.
    [[nodiscard]] bool IsHomeOf(HANDLE hFile) const;

private:
    static constexpr DWORD kItself = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;

    [[nodiscard]] static UniqueFile Open(const std::wstring& tstrPath, DWORD dwFlags, DWORD& dwError);
    [[nodiscard]] static UniqueFile OpenOrMake(const std::wstring& tstrPath, const Way& way, DWORD& dwError,
                                               bool& bRefused);
    using Opener = std::function<UniqueFile(DWORD& dwError, bool& bRefused)>;
    [[nodiscard]] bool Add(const Opener& open, bool bWait, DWORD* pdwError);
    [[nodiscard]] bool HoldAll(const std::wstring& tstrFull, const Way& way, unsigned uLinks, DWORD* pdwError);
    /// Stores the final path of the folder opened last. False unless the folders from index `uFirst`, with the names
    /// `tstrNames` (each after a backslash), are nested in the folder whose final path is known.
    [[nodiscard]] bool GoDown(std::size_t uFirst, const std::wstring& tstrNames);
    [[nodiscard]] static bool IsBelow(const std::wstring& tstrFinal, const std::wstring& tstrFinalAbove);
    [[nodiscard]] static bool IsSamePath(const std::wstring& tstrPath, const std::wstring& tstrOther) noexcept;
    [[nodiscard]] static bool IsLinkOpen(HANDLE hFolder) noexcept;
    [[nodiscard]] static std::wstring FinalPathOf(HANDLE hFile);

    std::vector<UniqueFile> m_folders;
    std::wstring m_tstrFinalPath;  // without trailing backslash; empty if the file system does not report it
};

/// Opens a folder so that it can be neither moved nor deleted.
inline UniqueFile LockedFolder::Open(const std::wstring& tstrPath, DWORD dwFlags, DWORD& dwError)
{
    constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE;
    UniqueFile folder(
        ::CreateFileW(tstrPath.c_str(), FILE_LIST_DIRECTORY, kShare, nullptr, OPEN_EXISTING, dwFlags, nullptr));
    dwError = folder ? ERROR_SUCCESS : ::GetLastError();
    if (dwError != ERROR_ACCESS_DENIED) return folder;
    // A folder that may be traversed but not listed cannot be locked; IsHomeOf() still works.
    folder.Reset(
        ::CreateFileW(tstrPath.c_str(), FILE_READ_ATTRIBUTES, kShare, nullptr, OPEN_EXISTING, dwFlags, nullptr));
    dwError = folder ? ERROR_SUCCESS : ::GetLastError();
    return folder;
}

/// Opens a folder; creates a missing one if `way` allows. `bRefused`: it cannot be created, and waiting does not help.
inline UniqueFile LockedFolder::OpenOrMake(const std::wstring& tstrPath, const Way& way, DWORD& dwError, bool& bRefused)
{
    UniqueFile folder = Open(tstrPath, kItself, dwError);
    const bool bMissing = dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND;
    if (!bMissing || !way.bMake) return folder;
    // If another program creates it meanwhile, that is fine, too.
    const bool bMade = ::CreateDirectoryW(tstrPath.c_str(), way.pAttributes) != FALSE;
    dwError = bMade ? ERROR_SUCCESS : ::GetLastError();
    bRefused = !bMade && dwError != ERROR_ALREADY_EXISTS;
    return bRefused ? UniqueFile() : Open(tstrPath, kItself, dwError);
}

/// Whether an open folder is a link, like IsLink() but for a handle. (Wine only knows it by the path.)
inline bool LockedFolder::IsLinkOpen(HANDLE hFolder) noexcept
{
    FILE_ATTRIBUTE_TAG_INFO info{};
    return ::GetFileInformationByHandleEx(hFolder, FileAttributeTagInfo, &info, sizeof(info)) &&
           (info.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) && IsLinkTag(info.ReparseTag);
}

/// The real path of an open file or folder, with device names for drives; empty when unknown.
inline std::wstring LockedFolder::FinalPathOf(HANDLE hFile)
{
    constexpr DWORD kFlags = FILE_NAME_NORMALIZED | VOLUME_NAME_NT;
    std::wstring tstrPath(MAX_PATH, L'\0');
    DWORD cch = ::GetFinalPathNameByHandleW(hFile, tstrPath.data(), static_cast<DWORD>(tstrPath.size()), kFlags);
    if (cch >= tstrPath.size()) {
        tstrPath.resize(cch);
        cch = ::GetFinalPathNameByHandleW(hFile, tstrPath.data(), cch, kFlags);
    }
    tstrPath.resize(cch < tstrPath.size() ? cch : 0);
    while (!tstrPath.empty() && tstrPath.back() == L'\\') tstrPath.pop_back();
    return tstrPath;
}

inline bool LockedFolder::Add(const Opener& open, bool bWait, DWORD* pdwError)
{
    bool bRefused = false;
    const auto attempt = [&](DWORD& dwError) {
        UniqueFile folder = open(dwError, bRefused);
        if (folder) m_folders.push_back(std::move(folder));
        return dwError == ERROR_SUCCESS;
    };
    DWORD dwError = ERROR_SUCCESS;
    if (RetryWhileInUse(
            attempt, [&] { return bWait && !bRefused; }, &dwError)) {
        return true;
    }
    return Fail(dwError == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_PATH_NOT_FOUND} : dwError, pdwError);
}

inline bool LockedFolder::Hold(const std::wstring& tstrFolder, DWORD* pdwError, const Way& way)
{
    m_folders.clear();
    return HoldAll(FullPath(tstrFolder), way, kMaxLinks, pdwError);
}

inline bool LockedFolder::HoldAll(const std::wstring& tstrFull, const Way& way, unsigned uLinks, DWORD* pdwError)
{
    std::size_t uStart = RootLength(tstrFull);
    std::wstring tstrPath = tstrFull.substr(0, uStart) + L'\\';
    const auto open = [&](DWORD& dwError, bool& bRefused) {
        return OpenOrMake(tstrPath, way, dwError, bRefused);
    };
    const auto follow = [&](DWORD& dwError, bool&) {
        return Open(tstrPath, FILE_FLAG_BACKUP_SEMANTICS, dwError);
    };
    if (!Add(follow, way.bWait, pdwError)) return false;
    m_tstrFinalPath = FinalPathOf(m_folders.back().Get());
    std::size_t uFirst = m_folders.size();
    // Check each folder while it and those above it are locked, so that the result stays valid.
    for (std::size_t uEnd = uStart; uEnd < tstrFull.size();) {
        uEnd = std::min(tstrFull.find(L'\\', uEnd + 1), tstrFull.size());
        tstrPath = tstrFull.substr(0, uEnd);
        if (!Add(open, way.bWait, pdwError)) return false;
        const bool bLink = IsLinkOpen(m_folders.back().Get()) || IsLink(tstrPath);
        // Before creating a folder, its parent's real location must be known.
        if (!bLink && !way.bMake && uEnd < tstrFull.size()) continue;
        if (!GoDown(uFirst, tstrFull.substr(uStart, uEnd - uStart))) return Fail(kStoppedOnLink, pdwError);
        if (bLink) {
            std::wstring tstrTarget;
            if (uLinks == 0 || !IsPassableLink(tstrPath, tstrTarget)) return Fail(kStoppedOnLink, pdwError);
            // The contents of a volume are in its root folder, not in its mount point. Likewise for a link: the folders
            // of its target are locked as well, because other users may be able to change them.
            if (!HoldAll(FullPath(tstrTarget), {.bWait = way.bWait}, uLinks - 1, pdwError)) return false;
        }
        uStart = uEnd;
        uFirst = m_folders.size();
    }
    return true;
}

inline bool LockedFolder::GoDown(std::size_t uFirst, const std::wstring& tstrNames)
{
    std::wstring tstrFinal = FinalPathOf(m_folders.back().Get());
    // Nothing above an open folder can be moved, so checking the last one is enough. A path with short names cannot be
    // compared.
    if (!IsSamePath(tstrFinal, m_tstrFinalPath + tstrNames)) {
        for (; uFirst < m_folders.size(); ++uFirst) {
            tstrFinal = FinalPathOf(m_folders[uFirst].Get());
            if (!IsBelow(tstrFinal, m_tstrFinalPath)) return false;
            m_tstrFinalPath = tstrFinal;
        }
    }
    m_tstrFinalPath = std::move(tstrFinal);
    return true;
}

/// Whether a folder opened by its path is still below its parent, which can become a junction after the check even
/// while locked. Assumes so for servers, whose path rules are unknown.
inline bool LockedFolder::IsBelow(const std::wstring& tstrFinal, const std::wstring& tstrFinalAbove)
{
    if (tstrFinal.empty() || tstrFinalAbove.empty() || tstrFinalAbove.starts_with(L"\\Device\\Mup")) return true;
    return IsSamePath(tstrFinal.substr(0, tstrFinal.find_last_of(L'\\')), tstrFinalAbove);
}

inline bool LockedFolder::IsSamePath(const std::wstring& tstrPath, const std::wstring& tstrOther) noexcept
{
    return ::CompareStringOrdinal(tstrPath.c_str(), -1, tstrOther.c_str(), -1, TRUE) == CSTR_EQUAL;
}

inline bool LockedFolder::IsHomeOf(HANDLE hFile) const
{
    if (m_tstrFinalPath.empty()) return true;
    const std::wstring tstrFile = FinalPathOf(hFile);
    return IsSamePath(tstrFile.substr(0, tstrFile.find_last_of(L'\\')), m_tstrFinalPath);
}

}  // namespace KzCommon::Storage::Directory
