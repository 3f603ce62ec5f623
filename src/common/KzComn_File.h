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

/// Copies `tstrSource` to `tstrDestination`; an existing destination is an error unless `bOverwrite`. Where possible it
/// is replaced in one step, with its owner and access rights: even if the process is killed, it contains the old or the
/// new content. An owner that cannot be kept is traced. A link at the destination is itself replaced. Waits about two
/// seconds for a file in use unless `bWait` is false (for new files only). False with the code in `*pdwError` (may be
/// null): ERROR_BAD_ARGUMENTS (160) when either path is empty, ERROR_ACCESS_DENIED (5) for a read-only destination or a
/// hidden one when the source is not, kStoppedOnLink (681) when the path to its folder, which is locked meanwhile,
/// contains a link that is refused (KzComn_LinkRule.h). CopyFileW, SetFileInformationByHandle.
[[nodiscard]] bool Copy(const std::wstring& tstrDestination, const std::wstring& tstrSource, bool bOverwrite,
                        DWORD* pdwError, bool bWait = true);

/// Makes `tstrCopy` a copy of `tstrSource` in one step, with its access rights and, where possible, its owner
/// (otherwise traced). Replaces an older copy, even a read-only one. False with the code in `*pdwError` (may be null),
/// an older copy unchanged and no files left: ERROR_BAD_ARGUMENTS (160) when either path is empty, kStoppedOnLink (681)
/// as for Copy(). CopyFileW, SetFileInformationByHandle.
[[nodiscard]] bool Backup(const std::wstring& tstrCopy, const std::wstring& tstrSource, DWORD* pdwError);

/// Deletes the file now, after removing the attributes that block the deletion. Waits about two seconds for a file in
/// use. A caller who may delete the folder's contents needs no rights on the file itself. SetFileInformationByHandle.
[[nodiscard]] bool Delete(const std::wstring& tstrPath, DWORD* pdwError);

/// Removes the attributes that make Copy() refuse an existing file: read-only, hidden, system. Changes a link itself,
/// not its target. True also when the file does not exist. False with the code in `*pdwError` (may be null), nothing
/// changed: ERROR_DIRECTORY (267) for a folder. SetFileAttributesW.
[[nodiscard]] bool MakeWritable(const std::wstring& tstrPath, DWORD* pdwError);

/// Schedules a file for the next restart: it then replaces `tstrDestination`, or is deleted when that is empty. A file
/// that is to be replaced loses its read-only attribute: Windows would drop the move. Where the attribute stays, a
/// trace line says so, and the move is scheduled. `bMayBeReadOnly`: false when the caller knows that it is not. False
/// with the code in `*pdwError` (may be null) and nothing changed, after about two seconds for a temporary failure.
/// MoveFileExW, SetFileAttributesW.
[[nodiscard]] bool MoveAtRestart(const std::wstring& tstrSource, const std::wstring& tstrDestination, DWORD* pdwError,
                                 bool bMayBeReadOnly = true);

}  // namespace KzCommon::Storage::File

namespace KzCommon::Storage::Directory {

/// Whether `tstrPath` (with or without trailing backslash) names an existing folder. GetFileAttributesW.
[[nodiscard]] bool IsExisted(const std::wstring& tstrPath);

/// Whether `tstrPath` is a whole drive or share. GetFullPathNameW.
[[nodiscard]] bool IsRoot(const std::wstring& tstrPath);

/// Creates a folder and the missing ones above it; true also when it exists. False with the code of the first folder
/// that could not be created, kStoppedOnLink (681) when one above is a link that is refused (KzComn_LinkRule.h).
/// CreateDirectoryW.
[[nodiscard]] bool Create(const std::wstring& tstrPath, SECURITY_ATTRIBUTES* pAttributes, DWORD* pdwError);

/// One entry of a folder.
struct Entry {
    std::wstring tstrName;
    bool bFolder = false;
    /// A junction or symbolic link; its target is elsewhere.
    bool bLink = false;
    DWORD dwAttributes = 0;
};

/// Calls `visit` for every entry of `tstrFolder` (with trailing backslash) that matches `tstrPattern`, except "." and
/// "..". False with the code when the folder cannot be listed; ERROR_FILE_NOT_FOUND (2) when nothing matches.
/// FindFirstFileW, FindNextFileW.
[[nodiscard]] bool ForEachEntry(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                const std::function<void(const Entry&)>& visit, DWORD* pdwError);

/// Whether a deletion skips a file, given its path, as if it did not exist.
using Spared = std::function<bool(const std::wstring& tstrPath)>;
/// Skips no file.
[[nodiscard]] inline bool SpareNone(const std::wstring&)
{
    return false;
}

/// Deletes the files of `tstrFolder` (with trailing backslash) that match `tstrPattern` now, but no folders. Tries all
/// of them and waits about two seconds in total for files in use. False with the code of the first failure,
/// ERROR_FILE_NOT_FOUND (2) when no file matches. Deletes nothing when the path to the folder contains a link that is
/// refused (KzComn_LinkRule.h): kStoppedOnLink (681). The folder is locked meanwhile.
[[nodiscard]] bool DeleteFiles(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD* pdwError,
                               const Spared& isSpared = &SpareNone);

/// Schedules the same files for deletion at the next restart, with the same refusals. MoveFileExW without destination.
[[nodiscard]] bool ScheduleDeleteFiles(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD* pdwError,
                                       const Spared& isSpared = &SpareNone);

/// Calls `visit` for every file, link and folder of a tree in deletion order: contents first, `tstrFolder` (with
/// trailing backslash) last; paths without trailing backslash. Does not follow junctions or symbolic links. False with
/// the code of the first folder that could not be listed.
[[nodiscard]] bool ForEachInTree(const std::wstring& tstrFolder,
                                 const std::function<void(const std::wstring& tstrPath)>& visit, DWORD* pdwError);

/// Schedules a whole folder tree for deletion at the next restart: contents first, then the empty folders, `tstrFolder`
/// (with trailing backslash) last. A junction or symbolic link, `tstrFolder` included, is itself deleted, not its
/// target. Tries all entries. False with the code of the first failure; kStoppedOnLink (681) and nothing scheduled when
/// a folder above `tstrFolder` is a link that is refused.
[[nodiscard]] bool ScheduleDeleteTree(const std::wstring& tstrFolder, DWORD* pdwError,
                                      const Spared& isSpared = &SpareNone);

}  // namespace KzCommon::Storage::Directory
