// The file and folder records of the instruction file.
#pragma once

#include "agent/InstructionFile.h"
#include "agent/RunContext.h"

#include <windows.h>

#include <string>

struct SectionKey;

/// Why a file record is not carried out.
enum class FileRefusal {
    eNone,
    eTooLong,       ///< a pattern of more than _MAX_PATH (260) characters
    eNotSplit,      ///< a pattern that cannot be split into folder and name: `dwRefusal`
    eNotAFullPath,  ///< a path that depends on the current folder, or a deletion of a whole drive or share
};

/// A file record, placeholders expanded, taken apart.
struct FileRecord {
    std::wstring tstrPath;
    std::wstring tstrFolder;   ///< what is created or cleared, or where the files are
    std::wstring tstrPattern;  ///< which of them; "*" for a whole folder, empty for one to create
    FileRefusal eRefusal = FileRefusal::eNone;
    DWORD dwRefusal = ERROR_SUCCESS;  ///< the Win32 code of the refusal
};

/// Takes a record apart whose placeholders have been expanded; `iOp` is a FileOp. Does and traces nothing, and does not
/// look at the disk.
[[nodiscard]] FileRecord ParseFileRecord(int iOp, const std::wstring& tstrExpanded);

/// Creates the folders of the section "QOR_DIR".
void CreateDirBeforeReboot(const RunContext& run);

/// Carries out the removals of "QOR_DIR" and "QOR_FILE"; none unless both sections can be read.
void RemoveFileAfterReboot(const RunContext& run);

/// Carries out one file record; `iOp` is a FileOp. Traces what becomes of it. CreateDirectoryW, DeleteFileW,
/// MoveFileExW.
void PerformFileOperation(const RunContext& run, const std::wstring& tstrData, int iOp);

namespace Records {

/// The operation of the sections' keys: one record, by the FileOp of the key's effect.
void ChangeFiles(const RunContext& run, const SectionKey& key, const std::wstring& tstrRecord);

}  // namespace Records
