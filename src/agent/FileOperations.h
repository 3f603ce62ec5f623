// The file and folder records of the instruction file.
#pragma once

#include "agent/InstructionFile.h"
#include "agent/RunContext.h"

#include <windows.h>

#include <optional>
#include <string>

struct SectionKey;

/// File operations; other numbers are refused.
enum FileOp : int {
    op_dir_delete = 0,       ///< delete a folder with its contents at the next restart
    op_dir_add = 1,          ///< create a folder now
    op_not_used = 2,         ///< does nothing
    op_file_delete = 3,      ///< delete the matching files at the next restart
    op_file_delete_now = 4,  ///< delete the matching files now
    op_begin_file = op_dir_delete,
    op_end_file = op_file_delete_now
};

/// What a file operation does with the path of its record.
struct FileOpTraits {
    KzCommon::Action eAction;  ///< eCreateFolder, eDelete, or eCopy for a file that is written
    bool bFolder;              ///< the path is a folder; otherwise a file, or the name pattern of files
    bool bAtRestart;           ///< the change is made at the restart
};

/// The traits of a FileOp; none for other numbers.
constexpr std::optional<FileOpTraits> TraitsOf(FileOp eOp) noexcept
{
    using KzCommon::Action;
    switch (eOp) {
        case op_dir_delete: return FileOpTraits{Action::eDelete, true, true};
        case op_dir_add: return FileOpTraits{Action::eCreateFolder, true, false};
        case op_file_delete: return FileOpTraits{Action::eDelete, false, true};
        case op_file_delete_now: return FileOpTraits{Action::eDelete, false, false};
        case op_not_used: break;
    }
    return std::nullopt;
}

/// Why a file record is refused.
enum class FileRefusal {
    eNone,
    eTooLong,       ///< a pattern of more than _MAX_PATH (260) characters
    eNotSplit,      ///< a pattern that cannot be split into folder and name; `dwRefusal` has the code
    eNotAFullPath,  ///< a path that depends on the current folder, or a deletion of a whole drive or share
};

/// A parsed file record with expanded placeholders.
struct FileRecord {
    FileOpTraits traits{};      ///< of the operation
    std::wstring tstrPath;      ///< for a copy the destination
    std::wstring tstrFolder;    ///< the folder to create or clear, or the folder of the files
    std::wstring tstrPattern;   ///< the files to delete; "*" for a whole folder, empty for a folder to create
    std::wstring tstrSource{};  ///< the file that is copied; empty unless the operation copies one
    FileRefusal eRefusal = FileRefusal::eNone;
    DWORD dwRefusal = ERROR_SUCCESS;  ///< the Win32 code of the refusal
};

/// Parses a record with expanded placeholders; `iOp` is a FileOp. Changes and traces nothing and does not access the
/// disk.
[[nodiscard]] FileRecord ParseFileRecord(int iOp, const std::wstring& tstrExpanded);

/// Creates the folders of the section "QOR_DIR".
void CreateDirBeforeReboot(const RunContext& run);

/// Carries out the removals of "QOR_DIR" and "QOR_FILE", or none unless both sections can be read.
void RemoveFileAfterReboot(const RunContext& run);

/// Carries out one file record and traces the result; `iOp` is a FileOp. CreateDirectoryW, DeleteFileW, MoveFileExW.
void PerformFileOperation(const RunContext& run, const std::wstring& tstrData, int iOp);

namespace Records {

/// Carries out one record of a file section with the FileOp of the key's effect.
void ChangeFiles(const RunContext& run, const SectionKey& key, const std::wstring& tstrRecord);

}  // namespace Records
