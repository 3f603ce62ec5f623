// Deleting now.
#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_HeldFolder.h"
#include "common/KzComn_Retry.h"

#include <vector>

namespace KzCommon::Storage {

namespace {

// FileDispositionInfoEx and its flags, which the toolchain's headers keep for a version of Windows 10 that need not be
// there: one that does not know them refuses them.
constexpr auto kDispositionInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
constexpr DWORD kDelete = 0x1;
constexpr DWORD kPosixSemantics = 0x2;
constexpr DWORD kNotWhileRun = 0x4;

/// Marks an open file as deleted. Its name goes at once where the file system can do that, though others have it open.
bool MarkDeleted(HANDLE hFile)
{
    DWORD dwAtOnce = kDelete | kPosixSemantics | kNotWhileRun;
    FILE_DISPOSITION_INFO whenClosed{TRUE};
    return ::SetFileInformationByHandle(hFile, kDispositionInfoEx, &dwAtOnce, sizeof(dwAtOnce)) ||
           ::SetFileInformationByHandle(hFile, FileDispositionInfo, &whenClosed, sizeof(whenClosed));
}

/// Opens a file, a link itself, for its deletion; `dwError` is ERROR_SUCCESS when that is done.
UniqueFile OpenToDelete(const std::wstring& tstrPath, DWORD dwAccess, DWORD& dwError)
{
    constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    UniqueFile file(::CreateFileW(tstrPath.c_str(), dwAccess, kShare, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    dwError = file ? ERROR_SUCCESS : ::GetLastError();
    return file;
}

/// Takes away the attributes that block a deletion and deletes the file; what could not be deleted has them back. All
/// on one open file, a link itself: nothing is done to a file that does not lie in `pHome`, where that is given.
bool DeleteOnce(const std::wstring& tstrPath, const Directory::HeldFolder* pHome, DWORD& dwError)
{
    UniqueFile file = OpenToDelete(tstrPath, DELETE | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES, dwError);
    // Who may delete what a folder holds may delete a file in it that gives no right at all, attributes included.
    if (dwError == ERROR_ACCESS_DENIED) file = OpenToDelete(tstrPath, DELETE, dwError);
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
    return TryWhileHeld(
        remove, [&] { return !Directory::IsExisted(tstrPath); }, pdwError);
}

bool Directory::DeleteFiles(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD* pdwError,
                            const Spared& isSpared)
{
    HeldFolder folder;
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
            if (!IsHeldByOthers(file.dwError)) continue;
            if (DeleteOnce(file.tstrPath, &folder, file.dwError)) file.dwError = ERROR_SUCCESS;
            if (IsHeldByOthers(file.dwError)) dwError = file.dwError;
        }
        return dwError == ERROR_SUCCESS;
    };
    static_cast<void>(TryWhileHeld(deleteRest, nullptr));
    FirstFailure failure;
    for (const Doomed& file : files) failure.Note(file.dwError == ERROR_SUCCESS, file.dwError);
    return failure.Report(pdwError);
}

}  // namespace KzCommon::Storage
