#include "agent/FileOperations.h"

#include "agent/Sections.h"

#include "common/KzComn_AccessControl.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace {

// A path that depends on the current folder, or on a placeholder that stands for nothing, could mean anything: it is
// refused with this code.
constexpr DWORD kNotAFullPath = ERROR_BAD_PATHNAME;

void Refuse(FileRecord& record, FileRefusal eRefusal, DWORD dwCode)
{
    record.eRefusal = eRefusal;
    record.dwRefusal = dwCode;
}

void ParseFolder(FileRecord& record, bool bClear)
{
    record.tstrFolder = bClear ? String::EnsureBackslash(record.tstrPath) : record.tstrPath;
    if (bClear) record.tstrPattern = L"*";
    if (!String::IsFullPath(record.tstrFolder) || (bClear && Storage::Directory::IsRoot(record.tstrFolder))) {
        Refuse(record, FileRefusal::eNotAFullPath, kNotAFullPath);
    }
}

void ParsePattern(FileRecord& record)
{
    if (record.tstrPath.size() > _MAX_PATH) return Refuse(record, FileRefusal::eTooLong, ERROR_FILENAME_EXCED_RANGE);
    String::PathParts parts;
    if (String::SplitPath(record.tstrPath, parts) != 0) {
        return Refuse(record, FileRefusal::eNotSplit, ::GetLastError());
    }
    record.tstrFolder = std::wstring(parts.szDrive) + parts.szDir;
    record.tstrPattern = std::wstring(parts.szName) + parts.szExt;
    if (!String::IsFullPath(record.tstrPath)) Refuse(record, FileRefusal::eNotAFullPath, kNotAFullPath);
}

void TraceFailedDelete(const FileRecord& record, DWORD dwError)
{
    Trace(kTraceError, L"Failed to delete file '%s%s', error = %d.", record.tstrFolder.c_str(),
          record.tstrPattern.c_str(), dwError);
}

/// What the run itself keeps is not deleted: no record was written for it.
Storage::Directory::Spared KeptBy(const PathValues& pathValues)
{
    return [&pathValues](const std::wstring& tstrPath) {
        const bool bKept = pathValues.IsKeptFile(tstrPath);
        if (bKept) {
            Trace(kTraceInfo, L"*** FrameworkDeployAgent::PerformFileOperation() - [%s] is kept by this run and stays.",
                  tstrPath.c_str());
        }
        return bKept;
    };
}

void ScheduleFolder(const PathValues& pathValues, const FileRecord& record)
{
    if (!Storage::Directory::IsExisted(record.tstrFolder)) {
        Trace(kTraceError, L"No files under directory '%s'", record.tstrPath.c_str());
        return;
    }
    DWORD dwError = record.dwRefusal;
    if (record.eRefusal != FileRefusal::eNone ||
        !Storage::Directory::ScheduleDeleteTree(record.tstrFolder, &dwError, KeptBy(pathValues))) {
        TraceFailedDelete(record, dwError);
    }
}

void MakeFolder(const FileRecord& record)
{
    if (Storage::Directory::IsExisted(record.tstrFolder)) {
        Trace(kTraceInfo, L"Directory '%s' is already there.", record.tstrPath.c_str());
        return;
    }
    AccessControl::SecurityAttributes attributes;
    DWORD dwError = record.dwRefusal;
    if (record.eRefusal != FileRefusal::eNone ||
        !Storage::Directory::Create(record.tstrFolder, attributes.Get(), &dwError)) {
        Trace(kTraceError, L"Failed to create directory '%s', error = %d.", record.tstrPath.c_str(), dwError);
    }
}

void RemoveMatching(const PathValues& pathValues, const FileRecord& record, TraceFormat<int> tooLong,
                    decltype(Storage::Directory::DeleteFiles)* pfnRemove)
{
    DWORD dwError = record.dwRefusal;
    switch (record.eRefusal) {
        case FileRefusal::eTooLong: Trace(kTraceError, tooLong, static_cast<int>(record.tstrPath.size())); break;
        case FileRefusal::eNotSplit:
            Trace(kTraceError, L"Failed to do _tsplitpath_s(), error code = %d.", dwError);
            break;
        case FileRefusal::eNotAFullPath: TraceFailedDelete(record, dwError); break;
        case FileRefusal::eNone:
            if (!pfnRemove(record.tstrFolder, record.tstrPattern, &dwError, KeptBy(pathValues)))
                TraceFailedDelete(record, dwError);
            break;
    }
}

}  // namespace

FileRecord ParseFileRecord(int iOp, const std::wstring& tstrExpanded)
{
    FileRecord record;
    record.tstrPath = tstrExpanded;
    if (iOp == op_dir_delete || iOp == op_dir_add) ParseFolder(record, iOp == op_dir_delete);
    if (iOp == op_file_delete || iOp == op_file_delete_now) ParsePattern(record);
    return record;
}

void CreateDirBeforeReboot(const PathValues& pathValues)
{
    const OperationTrace trace(L"FrameworkDeployAgent::CreateDirBeforeReboot()");
    constexpr const Section& kSection = SectionOf(L"QOR_DIR", L"CreateDirBeforeReboot");
    SectionRecords records;
    if (ReadSection(kSection, records)) CarryOutRecords(kSection, records, pathValues);
}

void RemoveFileAfterReboot(const PathValues& pathValues)
{
    const OperationTrace trace(L"FrameworkDeployAgent::RemoveFileAfterReboot()");
    constexpr const Section& kFolders = SectionOf(L"QOR_DIR", L"RemoveFileAfterReboot");
    constexpr const Section& kFiles = SectionOf(L"QOR_FILE", L"RemoveFileAfterReboot");
    SectionRecords folders;
    SectionRecords files;
    if (!ReadSection(kFolders, folders) || !ReadSection(kFiles, files)) return;
    CarryOutRecords(kFolders, folders, pathValues);
    CarryOutRecords(kFiles, files, pathValues);
}

void Records::CreateFolder(const PathValues& pathValues, const std::wstring& tstrRecord)
{
    Trace(kTraceInfo, L"*** FrameworkDeployAgent::CreateDirBeforeReboot() - to add: [%s]", tstrRecord.c_str());
    PerformFileOperation(pathValues, tstrRecord, op_dir_add);
}

void Records::RemoveFolder(const PathValues& pathValues, const std::wstring& tstrRecord)
{
    Trace(kTraceInfo, L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - to delete folder: [%s]",
          tstrRecord.c_str());
    PerformFileOperation(pathValues, tstrRecord, op_dir_delete);
}

void Records::RemoveFiles(const PathValues& pathValues, const std::wstring& tstrRecord)
{
    Trace(kTraceInfo, L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - to delete file: [%s]", tstrRecord.c_str());
    PerformFileOperation(pathValues, tstrRecord, op_file_delete);
}

void Records::RemoveFilesNow(const PathValues& pathValues, const std::wstring& tstrRecord)
{
    Trace(kTraceInfo, L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - deleting file: [%s]", tstrRecord.c_str());
    PerformFileOperation(pathValues, tstrRecord, op_file_delete_now);
}

void PerformFileOperation(const PathValues& pathValues, const std::wstring& tstrData, int iOp)
{
    const OperationTrace trace(L"FrameworkDeployAgent::PerformFileOperation()");
    if (!IsRecordLengthValid(tstrData)) {
        Trace(kTraceError, L"PerformFileOperation(tszData==empty || tszData.size()>1023)");
        return;
    }
    if (iOp < op_begin_file || iOp > op_end_file) {
        Trace(kTraceError, L"PerformFileOperation(op<op_begin_file || op>op_end_file)");
        return;
    }
    std::wstring tstrPath = tstrData;
    pathValues.ExpandPlaceholders(tstrPath);
    const FileRecord record = ParseFileRecord(iOp, tstrPath);
    switch (iOp) {
        case op_dir_delete: ScheduleFolder(pathValues, record); break;
        case op_dir_add: MakeFolder(record); break;
        case op_file_delete:
            RemoveMatching(pathValues, record, L"_MAX_PATH<strPath.length() --> %d. Cnnot do further.",
                           &Storage::Directory::ScheduleDeleteFiles);
            break;
        case op_file_delete_now:
            RemoveMatching(pathValues, record, L"_MAX_PATH<strPath.length() --> %d. Cannot do further.",
                           &Storage::Directory::DeleteFiles);
            break;
        default: break;
    }
}
