// Deleting now.
#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_LockedFolder.h"
#include "common/KzComn_Retry.h"

#include <windows.h>

#include <winternl.h>

#include <vector>

namespace KzCommon::Storage {

namespace {

// FileDispositionInfoEx and its flags, which the toolchain's headers keep for a version of Windows 10 that need not be
// there: one that does not know them refuses them.
constexpr auto kDispositionInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
constexpr DWORD kDelete = 0x1;
constexpr DWORD kPosixSemantics = 0x2;
constexpr DWORD kNotWhileRun = 0x4;

constexpr std::size_t kMostInKernelName = 32766;  // characters: the length in bytes has 16 bits

/// Marks an open file as deleted. Its name goes at once where the file system can do that, though others have it open.
bool MarkDeleted(HANDLE hFile)
{
    DWORD dwAtOnce = kDelete | kPosixSemantics | kNotWhileRun;
    FILE_DISPOSITION_INFO whenClosed{TRUE};
    return ::SetFileInformationByHandle(hFile, kDispositionInfoEx, &dwAtOnce, sizeof(dwAtOnce)) ||
           ::SetFileInformationByHandle(hFile, FileDispositionInfo, &whenClosed, sizeof(whenClosed));
}

/// Opens a file, a link itself, for its deletion; `dwError` is ERROR_SUCCESS when that is done.
UniqueFile OpenToDelete(const std::wstring& tstrPath, DWORD& dwError)
{
    constexpr DWORD kAccess = DELETE | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES;
    constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    UniqueFile file(::CreateFileW(tstrPath.c_str(), kAccess, kShare, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    dwError = file ? ERROR_SUCCESS : ::GetLastError();
    return file;
}

/// The name of a file for the kernel.
std::wstring KernelName(const std::wstring& tstrPath)
{
    const std::wstring tstrFull = Directory::FullPath(tstrPath);
    if (tstrFull.starts_with(L"\\\\?\\") || tstrFull.starts_with(L"\\\\.\\")) return L"\\??\\" + tstrFull.substr(4);
    return tstrFull.starts_with(L"\\\\") ? L"\\??\\UNC\\" + tstrFull.substr(2) : L"\\??\\" + tstrFull;
}

/// Opens a file, a link itself, for nothing but its deletion, as DeleteFileW does. CreateFileW asks for the right to
/// wait for the file as well, which somebody who may delete what its folder holds need not have.
UniqueFile OpenToDeleteOnly(const std::wstring& tstrPath, DWORD& dwError)
{
    std::wstring tstrName = KernelName(tstrPath);
    if (tstrName.size() > kMostInKernelName) return {};  // `dwError` stays
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

/// Takes away the attributes that block a deletion and deletes the file; what could not be deleted has them back. All
/// on one open file, a link itself: nothing is done to a file that does not lie in `pHome`, where that is given.
bool DeleteOnce(const std::wstring& tstrPath, const Directory::LockedFolder* pHome, DWORD& dwError)
{
    UniqueFile file = OpenToDelete(tstrPath, dwError);
    // Who may delete what a folder holds may delete a file in it that gives no right at all, attributes included.
    if (dwError == ERROR_ACCESS_DENIED) file = OpenToDeleteOnly(tstrPath, dwError);
    if (!file) return false;
    if (pHome && !pHome->IsHomeOf(file.Get())) {
        dwError = Directory::kStoppedOnLink;
        return false;
    }
    BY_HANDLE_FILE_INFORMATION old{};
    FILE_BASIC_INFO attributes{};  // times of zero stay as they are
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
        DWORD dwError = ERROR_SHARING_VIOLATION;  // to be tried
    };
    // The names are gathered first: deleting changes the folder that is being listed.
    std::vector<Doomed> files;
    const auto gather = [&](const Entry& entry) {
        if (!entry.bFolder && !isSpared(tstrFolder + entry.tstrName)) files.push_back({tstrFolder + entry.tstrName});
    };
    if (!ForEachEntry(tstrFolder, tstrPattern, gather, pdwError)) return false;
    if (files.empty()) return Fail(ERROR_FILE_NOT_FOUND, pdwError);

    // Those that others hold are waited for together: a thousand of them must not take half an hour.
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
