// Copying files.
#include "common/KzComn_File.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_LockedFolder.h"
#include "common/KzComn_Retry.h"
#include "common/KzComn_String.h"

namespace KzCommon::Storage::File {

namespace {

/// CopyFileW with retries while one of the files is in use; without retries for `bWaited`. If the drive is full,
/// deletes the incomplete new file, which Windows itself does not leave, so that it is not taken as complete.
bool CopyPlainly(const std::wstring& tstrDestination, const std::wstring& tstrSource, bool bOverwrite, bool bWaited,
                 DWORD* pdwError)
{
    const bool bNew = ::GetFileAttributesW(tstrDestination.c_str()) == INVALID_FILE_ATTRIBUTES;
    const auto copy = [&](DWORD& dwCode) {
        if (::CopyFileW(tstrSource.c_str(), tstrDestination.c_str(), !bOverwrite)) return true;
        dwCode = ::GetLastError();
        return false;
    };
    DWORD dwError = ERROR_SUCCESS;
    if (RetryWhileInUse(
            copy, [&] { return !bWaited; }, &dwError)) {
        return true;
    }
    if (bNew && (dwError == ERROR_DISK_FULL || dwError == ERROR_HANDLE_DISK_FULL)) {
        ::DeleteFileW(tstrDestination.c_str());
    }
    return Fail(dwError, pdwError);
}

/// The code that CopyFileW returns for a source that cannot be copied even after waiting; ERROR_SUCCESS when there is
/// no such obstacle.
DWORD LastingObstacle(const std::wstring& tstrSource)
{
    const DWORD dwNew = ::GetFileAttributesW(tstrSource.c_str());
    if (dwNew != INVALID_FILE_ATTRIBUTES)
        return (dwNew & FILE_ATTRIBUTE_DIRECTORY) ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
    const DWORD dwError = ::GetLastError();
    return IsInUse(dwError) ? ERROR_SUCCESS : dwError;
}

/// Likewise for a target to overwrite. (Wine's CopyFileW accepts a hidden one.)
DWORD LastingObstacle(const std::wstring& tstrDestination, const std::wstring& tstrSource)
{
    const DWORD dwOld = ::GetFileAttributesW(tstrDestination.c_str());
    if (dwOld == INVALID_FILE_ATTRIBUTES) return ERROR_SUCCESS;
    if (dwOld & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY)) return ERROR_ACCESS_DENIED;
    constexpr DWORD kHiding = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    if (!(dwOld & kHiding)) return ERROR_SUCCESS;
    const DWORD dwNew = ::GetFileAttributesW(tstrSource.c_str());
    return dwNew != INVALID_FILE_ATTRIBUTES && (dwOld & ~dwNew & kHiding) ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

bool CopyOver(const std::wstring& tstrDestination, const std::wstring& tstrSource, DWORD* pdwError)
{
    if (const DWORD dwCode = LastingObstacle(tstrDestination, tstrSource)) return Fail(dwCode, pdwError);
    // A link at the target is itself replaced. The target of the link does not affect the new file's rights and is not
    // changed.
    const bool bLink = Directory::IsLink(tstrDestination);
    const bool bLike = !bLink && ::GetFileAttributesW(tstrDestination.c_str()) != INVALID_FILE_ATTRIBUTES;
    DWORD dwError = ERROR_SUCCESS;
    bool bCreated = false;
    {
        Replacement replacement(tstrDestination);
        bCreated = replacement.Create(bLike ? tstrDestination : L"", FILE_ATTRIBUTE_NORMAL, &dwError);
        if (bCreated && replacement.CopyFrom(tstrSource, &dwError) &&
            (!bLike || replacement.TakeAccess(tstrDestination, &dwError))) {
            if (bLike) replacement.TakeOwner(tstrDestination);
            if (replacement.TakePlace(&dwError)) return true;
        }
    }
    if (bLink) return Fail(dwError, pdwError);
    // There is no space for the temporary file, no right to change its rights, or the target is in use but may still be
    // writable. The wait for the other program is already over.
    return CopyPlainly(tstrDestination, tstrSource, true, bCreated && IsInUse(dwError), pdwError);
}

/// Locks the folder of a file to create; for `bWaited` tries once, without a wait.
bool LockHome(Directory::LockedFolder& folder, const std::wstring& tstrDestination, bool bWaited, DWORD* pdwError)
{
    return folder.Hold(String::FolderPart(Directory::FullPath(tstrDestination)), pdwError, {.bWait = !bWaited});
}

/// Removes the attributes that block the replacement of a file; restores them unless it is replaced.
class Unlocked {
public:
    explicit Unlocked(const std::wstring& tstrPath)
        : m_tstrPath(tstrPath), m_dwAttributes(::GetFileAttributesW(tstrPath.c_str()))
    {
        if (IsLocked()) ::SetFileAttributesW(tstrPath.c_str(), FILE_ATTRIBUTE_NORMAL);
    }
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;
    ~Unlocked()
    {
        if (IsLocked() && !m_bReplaced) ::SetFileAttributesW(m_tstrPath.c_str(), m_dwAttributes);
    }
    bool m_bReplaced = false;

private:
    [[nodiscard]] bool IsLocked() const noexcept
    {
        return m_dwAttributes != INVALID_FILE_ATTRIBUTES && (m_dwAttributes & FILE_ATTRIBUTE_READONLY) != 0;
    }

    std::wstring m_tstrPath;
    DWORD m_dwAttributes;
};

}  // namespace

bool Copy(const std::wstring& tstrDestination, const std::wstring& tstrSource, bool bOverwrite, DWORD* pdwError,
          bool bWait)
{
    if (tstrDestination.empty() || tstrSource.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    const DWORD dwObstacle = bOverwrite ? LastingObstacle(tstrSource) : ERROR_SUCCESS;
    if (dwObstacle != ERROR_SUCCESS) return Fail(dwObstacle, pdwError);
    Directory::LockedFolder folder;
    if (!LockHome(folder, tstrDestination, !bWait, pdwError)) return false;
    // A new file must not be created through a link at its path.
    if (!bOverwrite && Directory::IsLink(tstrDestination)) return Fail(ERROR_FILE_EXISTS, pdwError);
    return bOverwrite
               ? CopyOver(tstrDestination, tstrSource, pdwError)
               : CopyPlainly(tstrDestination, tstrSource, false, !bWait || Directory::IsExisted(tstrSource), pdwError);
}

bool Backup(const std::wstring& tstrCopy, const std::wstring& tstrSource, DWORD* pdwError)
{
    if (tstrCopy.empty() || tstrSource.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    if (Directory::IsExisted(tstrCopy) || Directory::IsExisted(tstrSource)) return Fail(ERROR_ACCESS_DENIED, pdwError);
    Directory::LockedFolder folder;
    if (!LockHome(folder, tstrCopy, false, pdwError)) return false;
    Replacement replacement(tstrCopy);
    if (!replacement.Create(tstrSource, FILE_ATTRIBUTE_NORMAL, pdwError) ||
        !replacement.CopyFrom(tstrSource, pdwError) || !replacement.TakeAccess(tstrSource, pdwError)) {
        return false;
    }
    replacement.TakeOwner(tstrSource);
    Unlocked older(tstrCopy);
    older.m_bReplaced = replacement.TakePlace(pdwError);
    return older.m_bReplaced;
}

}  // namespace KzCommon::Storage::File
