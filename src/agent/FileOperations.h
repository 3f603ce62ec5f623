// The file and folder records of the instruction file.
#pragma once

#include "agent/InstructionFile.h"
#include "agent/RunContext.h"

#include <windows.h>

#include <string>

struct SectionKey;

/// Why a file record is refused.
enum class FileRefusal {
    eNone,
    eTooLong,       ///< a pattern of more than _MAX_PATH (260) characters
    eNotSplit,      ///< a pattern that cannot be split into folder and name; `dwRefusal` has the code
    eNotAFullPath,  ///< a path that depends on the current folder, or a deletion of a whole drive or share
};

/// A parsed file record with expanded placeholders.
struct FileRecord {
    std::wstring tstrPath;
    std::wstring tstrFolder;   ///< the folder to create or clear, or the folder of the files
    std::wstring tstrPattern;  ///< the files to delete; "*" for a whole folder, empty for a folder to create
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
