#include "common/KzComn_WholeFile.h"

#include "common/KzComn_File.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_Retry.h"

namespace KzCommon::Storage::File {

bool ReadWhole(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes, DWORD* pdwError)
{
    if (tstrPath.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    UniqueFile file;
    const auto open = [&](DWORD& dwError) {
        file.Reset(::CreateFileW(tstrPath.c_str(), GENERIC_READ, kShare, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
        dwError = file ? ERROR_SUCCESS : ::GetLastError();
        return file.IsValid();
    };
    if (!RetryWhileInUse(
            open, [&] { return !Directory::IsExisted(tstrPath); }, pdwError)) {
        return false;
    }
    LARGE_INTEGER liSize{};
    if (!::GetFileSizeEx(file.Get(), &liSize)) return Fail(::GetLastError(), pdwError);
    if (static_cast<ULONGLONG>(liSize.QuadPart) > cbMost) return Fail(ERROR_FILE_TOO_LARGE, pdwError);

    std::string strRead(static_cast<std::size_t>(liSize.QuadPart), '\0');
    DWORD cbRead = 0;
    if (!::ReadFile(file.Get(), strRead.data(), static_cast<DWORD>(strRead.size()), &cbRead, nullptr)) {
        return Fail(::GetLastError(), pdwError);
    }
    strRead.resize(cbRead);  // shorter if the file was truncated meanwhile
    strBytes = std::move(strRead);
    return true;
}

bool ReplaceWhole(const std::wstring& tstrPath, std::string_view strBytes, DWORD* pdwError)
{
    const DWORD dwAttributes = ::GetFileAttributesW(tstrPath.c_str());
    if (dwAttributes == INVALID_FILE_ATTRIBUTES) return Fail(::GetLastError(), pdwError);
    if (dwAttributes & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY)) return Fail(ERROR_ACCESS_DENIED, pdwError);
    constexpr DWORD kKept = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE |
                            FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_ENCRYPTED;
    Replacement replacement(tstrPath);
    if (!replacement.Create(tstrPath, dwAttributes & kKept, pdwError) || !replacement.Write(strBytes, pdwError) ||
        !replacement.TakeAccess(tstrPath, pdwError)) {
        return false;
    }
    replacement.TakeOwner(tstrPath);
    return replacement.TakePlace(pdwError);
}

}  // namespace KzCommon::Storage::File
