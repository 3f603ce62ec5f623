#include "common/KzComn_File.h"

#include "common/KzComn_Handle.h"
#include "common/KzComn_String.h"

#include <vector>

namespace KzCommon::Storage {

namespace {

[[nodiscard]] bool Fail(DWORD dwCode, DWORD* pdwError) noexcept
{
    if (pdwError) *pdwError = dwCode;
    return false;
}

/// The outcome of many deletions of which all are tried: the code of the first that failed.
class FirstFailure {
public:
    void Note(bool bOk, DWORD dwCode) noexcept
    {
        if (!bOk && m_dwCode == ERROR_SUCCESS) m_dwCode = dwCode;
    }
    [[nodiscard]] bool Report(DWORD* pdwError) const noexcept
    {
        return m_dwCode == ERROR_SUCCESS || Fail(m_dwCode, pdwError);
    }

private:
    DWORD m_dwCode = ERROR_SUCCESS;
};

Directory::Entry EntryOf(const WIN32_FIND_DATAW& data)
{
    const bool bReparse = (data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    // A reparse point that stands for no other name (a file kept in a cloud, say) is an ordinary entry. One without a
    // tag is taken for a link, the careful answer.
    const bool bLink = bReparse && (data.dwReserved0 == 0 || IsReparseTagNameSurrogate(data.dwReserved0));
    return {data.cFileName, (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0, bLink};
}

/// Takes away the attributes that block a deletion and calls `remove`; what could not be removed has them back.
template <class Remove>
bool WithoutAttributes(const std::wstring& tstrPath, Remove&& remove, DWORD* pdwError)
{
    const DWORD dwAttributes = ::GetFileAttributesW(tstrPath.c_str());
    ::SetFileAttributesW(tstrPath.c_str(), FILE_ATTRIBUTE_NORMAL);
    if (remove(tstrPath.c_str())) return true;
    const DWORD dwError = ::GetLastError();
    if (dwAttributes != INVALID_FILE_ATTRIBUTES) ::SetFileAttributesW(tstrPath.c_str(), dwAttributes);
    return Fail(dwError, pdwError);
}

bool DeleteNow(const std::wstring& tstrPath, DWORD* pdwError)
{
    return WithoutAttributes(tstrPath, &::DeleteFileW, pdwError);
}

bool DeleteAtRestart(const std::wstring& tstrPath, DWORD* pdwError)
{
    const auto schedule = [](const wchar_t* szPath) {
        return ::MoveFileExW(szPath, nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
    };
    return WithoutAttributes(tstrPath, schedule, pdwError);
}

/// The full path, without backslashes at its end; as it is when the system cannot tell.
std::wstring FullPath(const std::wstring& tstrPath)
{
    std::wstring tstrFull(::GetFullPathNameW(tstrPath.c_str(), 0, nullptr, nullptr), L'\0');
    tstrFull.resize(
        ::GetFullPathNameW(tstrPath.c_str(), static_cast<DWORD>(tstrFull.size()), tstrFull.data(), nullptr));
    if (tstrFull.empty()) tstrFull = tstrPath;
    while (!tstrFull.empty() && tstrFull.back() == L'\\') tstrFull.pop_back();
    return tstrFull;
}

bool ForEachFile(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                 bool (*pfnDelete)(const std::wstring&, DWORD*), DWORD* pdwError)
{
    // The names are gathered first: deleting changes the folder that is being listed.
    std::vector<std::wstring> files;
    const auto gather = [&](const Directory::Entry& entry) {
        if (!entry.bFolder) files.push_back(tstrFolder + entry.tstrName);
    };
    if (!Directory::ForEachEntry(tstrFolder, tstrPattern, gather, pdwError)) return false;
    if (files.empty()) return Fail(ERROR_FILE_NOT_FOUND, pdwError);

    FirstFailure failure;
    for (const std::wstring& tstrFile : files) {
        DWORD dwError = ERROR_SUCCESS;
        const bool bOk = pfnDelete(tstrFile, &dwError);
        failure.Note(bOk, dwError);
    }
    return failure.Report(pdwError);
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

bool Copy(const std::wstring& tstrDestination, const std::wstring& tstrSource, bool bOverwrite, DWORD* pdwError)
{
    if (tstrDestination.empty() || tstrSource.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    if (bOverwrite) {
        // What a copy that was ended half-way leaves here, the next one overwrites.
        const std::wstring tstrUnfinished = tstrDestination + L".unfinished";
        if (!::CopyFileW(tstrSource.c_str(), tstrUnfinished.c_str(), FALSE)) return Fail(::GetLastError(), pdwError);
        if (::MoveFileExW(tstrUnfinished.c_str(), tstrDestination.c_str(), MOVEFILE_REPLACE_EXISTING)) return true;
        // A file that cannot be replaced (others have it open) may still take new content.
        static_cast<void>(DeleteNow(tstrUnfinished, nullptr));
    }
    return ::CopyFileW(tstrSource.c_str(), tstrDestination.c_str(), !bOverwrite) || Fail(::GetLastError(), pdwError);
}

bool Delete(const std::wstring& tstrPath, DWORD* pdwError)
{
    if (tstrPath.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    return DeleteNow(tstrPath, pdwError);
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

bool IsRoot(const std::wstring& tstrPath)
{
    std::wstring tstrFull = FullPath(tstrPath);
    if (tstrFull.starts_with(L"\\\\?\\UNC\\")) tstrFull.replace(0, 8, L"\\\\");
    if (tstrFull.starts_with(L"\\\\?\\")) tstrFull.erase(0, 4);
    if (!tstrFull.starts_with(L"\\\\")) return tstrFull.find(L'\\') == std::wstring::npos;
    const std::size_t uShare = tstrFull.find(L'\\', 2);
    return uShare == std::wstring::npos || tstrFull.find(L'\\', uShare + 1) == std::wstring::npos;
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

bool DeleteFiles(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD* pdwError)
{
    return ForEachFile(tstrFolder, tstrPattern, &DeleteNow, pdwError);
}

bool ScheduleDeleteFiles(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD* pdwError)
{
    return ForEachFile(tstrFolder, tstrPattern, &DeleteAtRestart, pdwError);
}

bool ScheduleDeleteTree(const std::wstring& tstrFolder, DWORD* pdwError)
{
    // A stack of its own instead of recursion: a tree can be as deep as a path is long. A folder is listed when it is
    // first met and registered when everything below it has been.
    struct Pending {
        std::wstring tstrFolder;
        bool bListed;
    };
    FirstFailure failure;
    const auto schedule = [&](const std::wstring& tstrPath) {
        DWORD dwError = ERROR_SUCCESS;
        const bool bOk = DeleteAtRestart(tstrPath, &dwError);
        failure.Note(bOk, dwError);
    };
    std::vector<Pending> stack{{FullPath(tstrFolder) + L'\\', IsLink(tstrFolder)}};
    while (!stack.empty()) {
        const Pending next = stack.back();
        stack.pop_back();
        if (next.bListed) {
            schedule(next.tstrFolder.substr(0, next.tstrFolder.size() - 1));
            continue;
        }
        stack.push_back({next.tstrFolder, true});
        DWORD dwError = ERROR_SUCCESS;
        const auto visit = [&](const Entry& entry) {
            const std::wstring tstrPath = next.tstrFolder + entry.tstrName;
            if (entry.bFolder && !entry.bLink) {
                stack.push_back({tstrPath + L'\\', false});
            } else {
                schedule(tstrPath);
            }
        };
        const bool bOk = ForEachEntry(next.tstrFolder, L"*", visit, &dwError);
        failure.Note(bOk || dwError == ERROR_FILE_NOT_FOUND, dwError);
    }
    return failure.Report(pdwError);
}

}  // namespace Directory

}  // namespace KzCommon::Storage
