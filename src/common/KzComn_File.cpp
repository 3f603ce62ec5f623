#include "common/KzComn_File.h"

#include "common/KzComn_Handle.h"
#include "common/KzComn_Result.h"

#include <algorithm>
#include <vector>

namespace KzCommon::Storage {

namespace {

Directory::Entry EntryOf(const WIN32_FIND_DATAW& data)
{
    const bool bReparse = (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    // A reparse point that stands for no other name (a file kept in a cloud, say) is an ordinary entry. One without a
    // tag is taken for a link, the careful answer.
    const bool bLink = bReparse && (data.dwReserved0 == 0 || IsReparseTagNameSurrogate(data.dwReserved0));
    return {data.cFileName, (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0, bLink};
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

bool IsLink(const std::wstring& tstrPath)
{
    const std::wstring tstrFull = FullPath(tstrPath);
    const DWORD dwAttributes = ::GetFileAttributesW(tstrFull.c_str());
    if (dwAttributes == INVALID_FILE_ATTRIBUTES || !(dwAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) return false;
    WIN32_FIND_DATAW data{};
    const UniqueFind find(::FindFirstFileW(tstrFull.c_str(), &data));
    return !find || EntryOf(data).bLink;
}

std::wstring FullPath(const std::wstring& tstrPath)
{
    std::wstring tstrFull(::GetFullPathNameW(tstrPath.c_str(), 0, nullptr, nullptr), L'\0');
    tstrFull.resize(
        ::GetFullPathNameW(tstrPath.c_str(), static_cast<DWORD>(tstrFull.size()), tstrFull.data(), nullptr));
    if (tstrFull.empty()) tstrFull = tstrPath;
    while (!tstrFull.empty() && tstrFull.back() == L'\\') tstrFull.pop_back();
    return tstrFull;
}

std::size_t RootLength(const std::wstring& tstrFull)
{
    const bool bLong = tstrFull.starts_with(L"\\\\?\\");
    const bool bLongShare = tstrFull.starts_with(L"\\\\?\\UNC\\");
    const bool bShare = bLongShare || (!bLong && tstrFull.starts_with(L"\\\\"));
    std::size_t uEnd = tstrFull.find(L'\\', bLongShare ? 8 : bLong ? 4 : bShare ? 2 : 0);
    if (bShare && uEnd != std::wstring::npos) uEnd = tstrFull.find(L'\\', uEnd + 1);
    return std::min(uEnd, tstrFull.size());
}

bool IsRoot(const std::wstring& tstrPath)
{
    const std::wstring tstrFull = FullPath(tstrPath);
    return RootLength(tstrFull) == tstrFull.size();
}

bool Create(const std::wstring& tstrPath, SECURITY_ATTRIBUTES* pAttributes, DWORD* pdwError)
{
    if (tstrPath.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    // The missing folders, the deepest first.
    std::vector<std::wstring> missing;
    std::wstring tstrFolder = FullPath(tstrPath);
    while (!tstrFolder.empty() && tstrFolder.back() != L':' && !IsExisted(tstrFolder)) {
        missing.push_back(tstrFolder);
        const std::size_t uSlash = tstrFolder.find_last_of(L'\\');
        tstrFolder.resize(uSlash == std::wstring::npos ? 0 : uSlash);
    }
    // One above may have been made by somebody else meanwhile, or (server and share of a network path) cannot be made:
    // what counts is whether the last one is there.
    FirstFailure failure;
    for (auto itFolder = missing.rbegin(); itFolder != missing.rend(); ++itFolder) {
        const bool bOk = ::CreateDirectoryW(itFolder->c_str(), pAttributes) != FALSE;
        failure.Note(bOk, bOk ? ERROR_SUCCESS : ::GetLastError());
    }
    return IsExisted(tstrPath) || failure.Report(pdwError);
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
