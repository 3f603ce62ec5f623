#include "common/KzComn_File.h"

#include "common/KzComn_Handle.h"
#include "common/KzComn_LockedFolder.h"
#include "common/KzComn_Result.h"

namespace KzCommon::Storage {

namespace {

Directory::Entry EntryOf(const WIN32_FIND_DATAW& data)
{
    const bool bReparse = (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    const bool bLink = bReparse && Directory::IsLinkTag(data.dwReserved0);
    return {data.cFileName, (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0, bLink, data.dwFileAttributes};
}

}  // namespace

namespace File {

bool IsExisted(const std::wstring& tstrPath, DWORD* pdwError)
{
    if (tstrPath.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    const DWORD dwAttributes = ::GetFileAttributesW(tstrPath.c_str());
    if (dwAttributes == INVALID_FILE_ATTRIBUTES) return Fail(::GetLastError(), pdwError);
    return !(dwAttributes & FILE_ATTRIBUTE_DIRECTORY) || Fail(ERROR_DIRECTORY, pdwError);
}

bool MakeWritable(const std::wstring& tstrPath, DWORD* pdwError)
{
    constexpr DWORD kRefused = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    const DWORD dwAttributes = ::GetFileAttributesW(tstrPath.c_str());
    if (dwAttributes == INVALID_FILE_ATTRIBUTES) {
        const DWORD dwError = ::GetLastError();
        return dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND || Fail(dwError, pdwError);
    }
    if (dwAttributes & FILE_ATTRIBUTE_DIRECTORY) return Fail(ERROR_DIRECTORY, pdwError);
    if (!(dwAttributes & kRefused)) return true;
    const DWORD dwKept = dwAttributes & ~kRefused;
    return ::SetFileAttributesW(tstrPath.c_str(), dwKept ? dwKept : DWORD{FILE_ATTRIBUTE_NORMAL}) ||
           Fail(::GetLastError(), pdwError);
}

}  // namespace File

namespace Directory {

bool IsExisted(const std::wstring& tstrPath)
{
    const DWORD dwAttributes = ::GetFileAttributesW(tstrPath.c_str());
    return dwAttributes != INVALID_FILE_ATTRIBUTES && (dwAttributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool IsRoot(const std::wstring& tstrPath)
{
    const std::wstring tstrFull = FullPath(tstrPath);
    return RootLength(tstrFull) == tstrFull.size();
}

bool Create(const std::wstring& tstrPath, SECURITY_ATTRIBUTES* pAttributes, DWORD* pdwError)
{
    if (tstrPath.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    if (IsExisted(tstrPath)) return true;
    // Lock the folders above, so that a link put in their place cannot redirect the new folder.
    LockedFolder folder;
    if (!folder.Hold(tstrPath, pdwError, {.bMake = true, .pAttributes = pAttributes})) return false;
    return IsExisted(tstrPath) || Fail(ERROR_ALREADY_EXISTS, pdwError);  // it is a file
}

bool ForEachEntry(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                  const std::function<void(const Entry&)>& visit, DWORD* pdwError)
{
    WIN32_FIND_DATAW data{};
    const UniqueFind find(::FindFirstFileW((tstrFolder + tstrPattern).c_str(), &data));
    if (!find) return Fail(::GetLastError(), pdwError);
    do {
        const Entry entry = EntryOf(data);
        if (entry.tstrName != L"." && entry.tstrName != L"..") visit(entry);
    } while (::FindNextFileW(find.Get(), &data));
    const DWORD dwError = ::GetLastError();
    return dwError == ERROR_NO_MORE_FILES || Fail(dwError, pdwError);
}

}  // namespace Directory

}  // namespace KzCommon::Storage
