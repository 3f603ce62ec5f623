// Deletion of files now.
#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_LockedFolder.h"
#include "common/KzComn_Retry.h"

#include <windows.h>

#include <winternl.h>

#include <vector>

namespace KzCommon::Storage {

namespace {

// FileDispositionInfoEx and its flags. The toolchain's headers hide them unless built for a recent Windows 10; older
// systems reject the request.
constexpr auto kDispositionInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
constexpr DWORD kDelete = 0x1;
constexpr DWORD kPosixSemantics = 0x2;
constexpr DWORD kNotWhileRun = 0x4;

constexpr std::size_t kMostInKernelName = 32766;  // characters: the length in bytes has 16 bits

/// Marks an open file as deleted. Where the file system supports it, its name is free at once even if it is open
/// elsewhere.
bool MarkDeleted(HANDLE hFile)
{
    DWORD dwAtOnce = kDelete | kPosixSemantics | kNotWhileRun;
    FILE_DISPOSITION_INFO whenClosed{TRUE};
    return ::SetFileInformationByHandle(hFile, kDispositionInfoEx, &dwAtOnce, sizeof(dwAtOnce)) ||
           ::SetFileInformationByHandle(hFile, FileDispositionInfo, &whenClosed, sizeof(whenClosed));
}

/// Opens a file (a link itself) for deletion. Sets `dwError` to ERROR_SUCCESS on success.
UniqueFile OpenToDelete(const std::wstring& tstrPath, DWORD& dwError)
{
    constexpr DWORD kAccess = DELETE | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES;
    constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    UniqueFile file(::CreateFileW(tstrPath.c_str(), kAccess, kShare, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    dwError = file ? ERROR_SUCCESS : ::GetLastError();
    return file;
}

/// The kernel's name of a file.
std::wstring KernelName(const std::wstring& tstrPath)
{
    const std::wstring tstrFull = Directory::FullPath(tstrPath);
    if (tstrFull.starts_with(L"\\\\?\\") || tstrFull.starts_with(L"\\\\.\\")) return L"\\??\\" + tstrFull.substr(4);
    return tstrFull.starts_with(L"\\\\") ? L"\\??\\UNC\\" + tstrFull.substr(2) : L"\\??\\" + tstrFull;
}

/// Opens a file (a link itself) only for deletion, as DeleteFileW does. CreateFileW also requests SYNCHRONIZE, which a
/// caller who may delete the folder's contents may not have.
UniqueFile OpenToDeleteOnly(const std::wstring& tstrPath, DWORD& dwError)
{
    std::wstring tstrName = KernelName(tstrPath);
    if (tstrName.size() > kMostInKernelName) return {};  // `dwError` is unchanged
    const auto cbName = static_cast<USHORT>(tstrName.size() * sizeof(wchar_t));
    UNICODE_STRING name{cbName, cbName, tstrName.data()};
    OBJECT_ATTRIBUTES attributes{};
    attributes.Length = sizeof(attributes);
    attributes.ObjectName = &name;
    attributes.Attributes = OBJ_CASE_INSENSITIVE;
    constexpr ULONG kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    constexpr ULONG kOptions = FILE_NON_DIRECTORY_FILE | FILE_OPEN_REPARSE_POINT | FILE_OPEN_FOR_BACKUP_INTENT;
    IO_STATUS_BLOCK status{};
    HANDLE hFile = nullptr;
    const NTSTATUS nStatus =
        ::NtOpenFile(&hFile, DELETE | FILE_READ_ATTRIBUTES, &attributes, &status, kShare, kOptions);
    dwError = nStatus == 0 ? ERROR_SUCCESS : ::RtlNtStatusToDosError(nStatus);
    return UniqueFile(nStatus == 0 ? hFile : INVALID_HANDLE_VALUE);
}

/// Removes the attributes that block a deletion and deletes the file; restores them on failure. Uses one handle (of a
/// link itself) for everything, so that only a file in `pHome` (if not null) is changed.
bool DeleteOnce(const std::wstring& tstrPath, const Directory::LockedFolder* pHome, DWORD& dwError)
{
    UniqueFile file = OpenToDelete(tstrPath, dwError);
    // A caller who may delete the folder's contents may delete a file in it even without any right on the file.
    if (dwError == ERROR_ACCESS_DENIED) file = OpenToDeleteOnly(tstrPath, dwError);
    if (!file) return false;
    if (pHome && !pHome->IsHomeOf(file.Get())) {
        dwError = Directory::kStoppedOnLink;
        return false;
    }
    BY_HANDLE_FILE_INFORMATION old{};
    FILE_BASIC_INFO attributes{};  // zero times stay unchanged
    const bool bKnown = ::GetFileInformationByHandle(file.Get(), &old) != FALSE;
    attributes.FileAttributes = FILE_ATTRIBUTE_NORMAL;
    ::SetFileInformationByHandle(file.Get(), FileBasicInfo, &attributes, sizeof(attributes));
    if (MarkDeleted(file.Get())) return true;
    dwError = ::GetLastError();
    attributes.FileAttributes = old.dwFileAttributes;
    if (bKnown) ::SetFileInformationByHandle(file.Get(), FileBasicInfo, &attributes, sizeof(attributes));
    return false;
}

}  // namespace

bool File::Delete(const std::wstring& tstrPath, DWORD* pdwError)
{
    if (tstrPath.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    const auto remove = [&](DWORD& dwError) {
        return DeleteOnce(tstrPath, nullptr, dwError);
    };
    return RetryWhileInUse(
        remove, [&] { return !Directory::IsExisted(tstrPath); }, pdwError);
}

bool Directory::DeleteFiles(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD* pdwError,
                            const Spared& isSpared)
{
    LockedFolder folder;
    if (!folder.Hold(tstrFolder, pdwError)) return false;
    struct Doomed {
        std::wstring tstrPath;
        DWORD dwError = ERROR_SHARING_VIOLATION;  // not tried yet
    };
    // Collect the names first, because deletions change the folder during listing.
    std::vector<Doomed> files;
    const auto gather = [&](const Entry& entry) {
        if (!entry.bFolder && !isSpared(tstrFolder + entry.tstrName)) files.push_back({tstrFolder + entry.tstrName});
    };
    if (!ForEachEntry(tstrFolder, tstrPattern, gather, pdwError)) return false;
    if (files.empty()) return Fail(ERROR_FILE_NOT_FOUND, pdwError);

    // Wait for all files in use together: a thousand of them must not take half an hour.
    const auto deleteRest = [&](DWORD& dwError) {
        for (Doomed& file : files) {
            if (!IsInUse(file.dwError)) continue;
            if (DeleteOnce(file.tstrPath, &folder, file.dwError)) file.dwError = ERROR_SUCCESS;
            if (IsInUse(file.dwError)) dwError = file.dwError;
        }
        return dwError == ERROR_SUCCESS;
    };
    static_cast<void>(RetryWhileInUse(deleteRest, nullptr));
    FirstFailure failure;
    for (const Doomed& file : files) failure.Note(file.dwError == ERROR_SUCCESS, file.dwError);
    return failure.Report(pdwError);
}

}  // namespace KzCommon::Storage
