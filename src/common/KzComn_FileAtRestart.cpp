// Moves and deletions at the next restart. The system's list contains paths: if a folder is replaced with a link after
// the check here, the restart follows the link, because no lock lasts until then.
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_Handle.h"
#include "common/KzComn_LockedFolder.h"
#include "common/KzComn_Retry.h"

#include <vector>

namespace KzCommon::Storage {

namespace {

const wchar_t kSessionManager[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";

/// Whether this process may write to the system's list. Without that right, waiting does not help.
bool MayRegister()
{
    UniqueRegistryKey key;
    return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_SET_VALUE, key.Receive()) != ERROR_ACCESS_DENIED;
}

/// Removes the attributes that block a deletion and schedules it; restores the attributes on failure.
bool DeleteAtRestart(const std::wstring& tstrPath, DWORD* pdwError)
{
    const DWORD dwAttributes = ::GetFileAttributesW(tstrPath.c_str());
    ::SetFileAttributesW(tstrPath.c_str(), FILE_ATTRIBUTE_NORMAL);
    if (File::MoveAtRestart(tstrPath, L"", pdwError)) return true;
    if (dwAttributes != INVALID_FILE_ATTRIBUTES) ::SetFileAttributesW(tstrPath.c_str(), dwAttributes);
    return false;
}

/// The parent folder of `tstrFull`, a full path without trailing backslash; the drive or share for a top-level entry.
std::wstring FolderAbove(const std::wstring& tstrFull)
{
    const std::size_t uRoot = Directory::RootLength(tstrFull);
    const std::size_t uSlash = tstrFull.find_last_of(L'\\');
    return tstrFull.substr(0, uSlash == std::wstring::npos || uSlash < uRoot ? uRoot : uSlash) + L'\\';
}

/// Makes a file that a delayed move is to replace writable: Windows leaves one that is read-only as it is, and drops
/// the move. A file that stays read-only leaves a trace line. Returns the attributes that it had,
/// INVALID_FILE_ATTRIBUTES when nothing was changed.
DWORD UnprotectTarget(const std::wstring& tstrPath)
{
    const DWORD dwOld = ::GetFileAttributesW(tstrPath.c_str());
    const bool bProtected = dwOld != INVALID_FILE_ATTRIBUTES && (dwOld & FILE_ATTRIBUTE_READONLY) != 0;
    if (!bProtected || (dwOld & FILE_ATTRIBUTE_DIRECTORY)) return INVALID_FILE_ATTRIBUTES;
    const DWORD dwNew = dwOld & ~DWORD{FILE_ATTRIBUTE_READONLY};
    DWORD dwError = ERROR_SUCCESS;
    Directory::LockedFolder folder;
    if (folder.Hold(FolderAbove(Directory::FullPath(tstrPath)), &dwError)) {
        if (::SetFileAttributesW(tstrPath.c_str(), dwNew ? dwNew : DWORD{FILE_ATTRIBUTE_NORMAL})) return dwOld;
        dwError = ::GetLastError();
    }
    Trace(kTraceError, L"*** KzCommon::Storage::File - [%s] stays read-only and is not replaced. [0x%08x]",
          tstrPath.c_str(), dwError);
    return INVALID_FILE_ATTRIBUTES;
}

}  // namespace

bool File::MoveAtRestart(const std::wstring& tstrSource, const std::wstring& tstrDestination, DWORD* pdwError,
                         bool bMayBeReadOnly)
{
    const wchar_t* const szDestination = tstrDestination.empty() ? nullptr : tstrDestination.c_str();
    const DWORD dwFlags = MOVEFILE_DELAY_UNTIL_REBOOT | (szDestination ? MOVEFILE_REPLACE_EXISTING : 0U);
    const auto schedule = [&](DWORD& dwError) {
        if (::MoveFileExW(tstrSource.c_str(), szDestination, dwFlags)) return true;
        dwError = ::GetLastError();
        return false;
    };
    const bool bUnprotect = szDestination && bMayBeReadOnly;
    const DWORD dwOld = bUnprotect ? UnprotectTarget(tstrDestination) : INVALID_FILE_ATTRIBUTES;
    if (RetryWhileInUse(schedule, &MayRegister, pdwError)) return true;
    if (dwOld != INVALID_FILE_ATTRIBUTES) ::SetFileAttributesW(szDestination, dwOld);
    return false;
}

namespace Directory {

bool ScheduleDeleteFiles(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD* pdwError,
                         const Spared& isSpared)
{
    LockedFolder folder;
    if (!folder.Hold(tstrFolder, pdwError)) return false;
    std::vector<std::wstring> files;
    const auto gather = [&](const Entry& entry) {
        if (!entry.bFolder && !isSpared(tstrFolder + entry.tstrName)) files.push_back(tstrFolder + entry.tstrName);
    };
    if (!ForEachEntry(tstrFolder, tstrPattern, gather, pdwError)) return false;
    if (files.empty()) return Fail(ERROR_FILE_NOT_FOUND, pdwError);
    FirstFailure failure;
    for (const std::wstring& tstrFile : files) {
        DWORD dwError = ERROR_SUCCESS;
        const bool bOk = DeleteAtRestart(tstrFile, &dwError);
        failure.Note(bOk, dwError);
    }
    return failure.Report(pdwError);
}

bool ScheduleDeleteTree(const std::wstring& tstrFolder, DWORD* pdwError, const Spared& isSpared)
{
    LockedFolder above;
    if (!above.Hold(FolderAbove(FullPath(tstrFolder)), pdwError)) return false;
    FirstFailure failure;
    const auto schedule = [&](const std::wstring& tstrPath) {
        if (isSpared(tstrPath)) return;
        DWORD dwError = ERROR_SUCCESS;
        const bool bOk = DeleteAtRestart(tstrPath, &dwError);
        failure.Note(bOk, dwError);
    };
    DWORD dwError = ERROR_SUCCESS;
    const bool bListed = ForEachInTree(tstrFolder, schedule, &dwError);
    failure.Note(bListed, dwError);
    return failure.Report(pdwError);
}

bool ForEachInTree(const std::wstring& tstrFolder, const std::function<void(const std::wstring& tstrPath)>& visit,
                   DWORD* pdwError)
{
    const std::wstring tstrFull = FullPath(tstrFolder);
    // An explicit stack instead of recursion, because a tree can be as deep as a path is long. A folder is listed when
    // first reached and visited after everything below it.
    struct Pending {
        std::wstring tstrFolder;
        bool bListed;
    };
    FirstFailure failure;
    std::vector<Pending> stack{{tstrFull + L'\\', IsLink(tstrFull)}};
    while (!stack.empty()) {
        const Pending next = stack.back();
        stack.pop_back();
        if (next.bListed) {
            visit(next.tstrFolder.substr(0, next.tstrFolder.size() - 1));
            continue;
        }
        stack.push_back({next.tstrFolder, true});
        DWORD dwError = ERROR_SUCCESS;
        const auto visitEntry = [&](const Entry& entry) {
            const std::wstring tstrPath = next.tstrFolder + entry.tstrName;
            if (entry.bFolder && !entry.bLink) {
                stack.push_back({tstrPath + L'\\', false});
            } else {
                visit(tstrPath);
            }
        };
        const bool bOk = ForEachEntry(next.tstrFolder, L"*", visitEntry, &dwError);
        failure.Note(bOk || dwError == ERROR_FILE_NOT_FOUND, dwError);
    }
    return failure.Report(pdwError);
}

}  // namespace Directory

}  // namespace KzCommon::Storage
