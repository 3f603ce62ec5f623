// Files and folders: existence, copy, walk, creation, deletion now and at the next restart.
#pragma once

#include "common/KzComn_FolderPath.h"

#include <windows.h>

#include <functional>
#include <string>

namespace KzCommon::Storage::File {

/// Whether `tstrPath` names an existing file (not a folder). False with the code in `*pdwError` (may be null):
/// ERROR_BAD_ARGUMENTS (160) for an empty path, ERROR_DIRECTORY (267) for a folder. GetFileAttributesW.
[[nodiscard]] bool IsExisted(const std::wstring& tstrPath, DWORD* pdwError = nullptr);

/// Copies `tstrSource` to `tstrDestination`; an existing destination fails unless `bOverwrite`. It is replaced as a
/// whole, owner and access rights kept, where possible: whenever the process ends, it holds the old content or the new;
/// an owner that cannot be kept leaves a line in the trace. A link in its place is replaced itself. Unless `bWait` is
/// false (for new files only), a file in use is waited for, some two seconds. False with the code in `*pdwError` (may
/// be null): ERROR_BAD_ARGUMENTS (160) when either path is empty, ERROR_ACCESS_DENIED (5) for a destination that is
/// read-only, or hidden while the source is not, kStoppedOnLink (681) where a link that is refused (KzComn_LinkRule.h)
/// leads to its folder, which is locked meanwhile. CopyFileW, SetFileInformationByHandle.
[[nodiscard]] bool Copy(const std::wstring& tstrDestination, const std::wstring& tstrSource, bool bOverwrite,
                        DWORD* pdwError, bool bWait = true);

/// Makes `tstrCopy` a copy of `tstrSource` in one step, with its access rights and, where it can be given, its owner;
/// an older copy, read-only or not, is replaced; another owner leaves a line in the trace. False with the code in
/// `*pdwError` (may be null), an older copy as it was and nothing left behind: ERROR_BAD_ARGUMENTS (160) when either
/// path is empty, kStoppedOnLink (681) as above. CopyFileW, SetFileInformationByHandle.
[[nodiscard]] bool Backup(const std::wstring& tstrCopy, const std::wstring& tstrSource, DWORD* pdwError);

/// Strips the attributes that block a deletion and deletes the file now; one that others hold is waited for, some two
/// seconds. Who may delete what its folder holds needs no right over the file itself. SetFileInformationByHandle.
[[nodiscard]] bool Delete(const std::wstring& tstrPath, DWORD* pdwError);

/// Takes away the attributes that make Copy() refuse an existing file: read-only, hidden, system. A link itself is
/// changed, not what it points to. True also when there is no such file. False with the code in `*pdwError` (may be
/// null), nothing changed: ERROR_DIRECTORY (267) for a folder. SetFileAttributesW.
[[nodiscard]] bool MakeWritable(const std::wstring& tstrPath, DWORD* pdwError);

/// Registers a file for the next restart: it then replaces `tstrDestination`, or is deleted when that is empty. False
/// with the code in `*pdwError` (may be null), after some two seconds for what may pass. MoveFileExW.
[[nodiscard]] bool MoveAtRestart(const std::wstring& tstrSource, const std::wstring& tstrDestination, DWORD* pdwError);

}  // namespace KzCommon::Storage::File

namespace KzCommon::Storage::Directory {

/// Whether `tstrPath` (with or without trailing backslash) names an existing folder. GetFileAttributesW.
[[nodiscard]] bool IsExisted(const std::wstring& tstrPath);

/// Whether `tstrPath` is a drive or a share as a whole. GetFullPathNameW.
[[nodiscard]] bool IsRoot(const std::wstring& tstrPath);

/// Creates a folder and the missing ones above it; true also when it is there already. False with the code of the first
/// that could not be created, kStoppedOnLink (681) where one above is a link that is refused (KzComn_LinkRule.h).
/// CreateDirectoryW.
[[nodiscard]] bool Create(const std::wstring& tstrPath, SECURITY_ATTRIBUTES* pAttributes, DWORD* pdwError);

/// One entry that a walk meets.
struct Entry {
    std::wstring tstrName;
    bool bFolder = false;
    /// A junction or symbolic link: what it points to lies elsewhere.
    bool bLink = false;
    DWORD dwAttributes = 0;
};

/// Calls `visit` for every entry of `tstrFolder` (with trailing backslash) that matches `tstrPattern`, "." and ".."
/// left out. False with the code when the folder cannot be listed; ERROR_FILE_NOT_FOUND (2) when nothing matches.
/// FindFirstFileW, FindNextFileW.
[[nodiscard]] bool ForEachEntry(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                const std::function<void(const Entry&)>& visit, DWORD* pdwError);

/// Tells of a file, by its path, whether a deletion leaves it out as if it were not there.
using Spared = std::function<bool(const std::wstring& tstrPath)>;
/// Spares none.
[[nodiscard]] inline bool SpareNone(const std::wstring&)
{
    return false;
}

/// Deletes the files of `tstrFolder` (with trailing backslash) that match `tstrPattern` now; folders are left alone.
/// All are tried, those that others hold for some two seconds together; false with the code of the first failure,
/// ERROR_FILE_NOT_FOUND (2) when no file matches. Nothing is deleted where a link that is refused
/// (KzComn_LinkRule.h) leads to the folder (kStoppedOnLink, 681): it is held for as long as files are deleted.
[[nodiscard]] bool DeleteFiles(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD* pdwError,
                               const Spared& isSpared = &SpareNone);

/// Registers the same files for deletion at the next restart; refused in the same way. MoveFileExW without destination.
[[nodiscard]] bool ScheduleDeleteFiles(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD* pdwError,
                                       const Spared& isSpared = &SpareNone);

/// Calls `visit` for every file, link and folder of a tree in the order in which it is deleted: contents first,
/// `tstrFolder` (with trailing backslash) last; paths without trailing backslash. What a junction or symbolic link
/// points to is no part of the tree. False with the code of the first folder that could not be listed.
[[nodiscard]] bool ForEachInTree(const std::wstring& tstrFolder,
                                 const std::function<void(const std::wstring& tstrPath)>& visit, DWORD* pdwError);

/// Registers a whole folder tree for deletion at the next restart: contents first, then the folders they leave empty,
/// `tstrFolder` (with trailing backslash) last. A junction or symbolic link, `tstrFolder` included, is registered
/// itself; what it points to stays. All are tried; false with the code of the first failure, kStoppedOnLink (681) and
/// nothing registered when a folder above `tstrFolder` is a link that is refused.
[[nodiscard]] bool ScheduleDeleteTree(const std::wstring& tstrFolder, DWORD* pdwError,
                                      const Spared& isSpared = &SpareNone);

}  // namespace KzCommon::Storage::Directory
