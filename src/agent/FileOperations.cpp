// The file and folder records of the instruction file.
#include "agent/QorDeployAgent.h"

#include "common/KzComn_AccessControl.h"
#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace {

// A path that depends on the current folder, or on a placeholder that stands for nothing, could mean anything: it is
// refused with this code.
constexpr DWORD kNotAFullPath = ERROR_BAD_PATHNAME;

void TraceFailedDelete(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD dwError)
{
    Trace(kTraceError, L"Failed to delete file '%s%s', error = %d.", tstrFolder.c_str(), tstrPattern.c_str(), dwError);
}

void ScheduleFolder(const std::wstring& tstrPath)
{
    const std::wstring tstrFolder = String::EnsureBackslash(tstrPath);
    if (!Storage::Directory::IsExisted(tstrFolder)) {
        Trace(kTraceError, L"No files under directory '%s'", tstrPath.c_str());
        return;
    }
    if (!String::IsFullPath(tstrFolder) || Storage::Directory::IsRoot(tstrFolder)) {
        TraceFailedDelete(tstrFolder, L"*", kNotAFullPath);
        return;
    }
    DWORD dwError = ERROR_SUCCESS;
    if (!Storage::Directory::ScheduleDeleteTree(tstrFolder, &dwError)) TraceFailedDelete(tstrFolder, L"*", dwError);
}

void CreateFolder(const std::wstring& tstrPath)
{
    if (Storage::Directory::IsExisted(tstrPath)) {
        Trace(kTraceInfo, L"Directory '%s' is already there.", tstrPath.c_str());
        return;
    }
    AccessControl::SecurityAttributes attributes;
    DWORD dwError = kNotAFullPath;
    if (!String::IsFullPath(tstrPath) || !Storage::Directory::Create(tstrPath, attributes.Get(), &dwError)) {
        Trace(kTraceError, L"Failed to create directory '%s', error = %d.", tstrPath.c_str(), dwError);
    }
}

/// Splits a path of up to _MAX_PATH characters into folder and name pattern, then removes what matches.
void RemoveMatching(const std::wstring& tstrPath,
                    bool (*pfnRemove)(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD* pdwError))
{
    String::PathParts parts;
    if (String::SplitPath(tstrPath, parts) != 0) {
        Trace(kTraceError, L"Failed to do _tsplitpath_s(), error code = %d.", ::GetLastError());
        return;
    }
    const std::wstring tstrFolder = std::wstring(parts.szDrive) + parts.szDir;
    const std::wstring tstrPattern = std::wstring(parts.szName) + parts.szExt;
    DWORD dwError = kNotAFullPath;
    if (!String::IsFullPath(tstrPath) || !pfnRemove(tstrFolder, tstrPattern, &dwError)) {
        TraceFailedDelete(tstrFolder, tstrPattern, dwError);
    }
}

void ScheduleFiles(const std::wstring& tstrPath)
{
    if (tstrPath.size() > _MAX_PATH) {
        Trace(kTraceError, L"_MAX_PATH<strPath.length() --> %d. Cnnot do further.", static_cast<int>(tstrPath.size()));
        return;
    }
    RemoveMatching(tstrPath, &Storage::Directory::ScheduleDeleteFiles);
}

void DeleteFilesNow(const std::wstring& tstrPath)
{
    if (tstrPath.size() > _MAX_PATH) {
        Trace(kTraceError, L"_MAX_PATH<strPath.length() --> %d. Cannot do further.", static_cast<int>(tstrPath.size()));
        return;
    }
    RemoveMatching(tstrPath, &Storage::Directory::DeleteFiles);
}

}  // namespace

void FrameworkDeployAgent::CreateDirBeforeReboot()
{
    const OperationTrace trace(L"FrameworkDeployAgent::CreateDirBeforeReboot()");
    SectionRecords records;
    DWORD dwError = ERROR_SUCCESS;
    if (!ReadInstructions(L"QOR_DIR", records, dwError)) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::CreateDirBeforeReboot() - QueryValue failed. [0x%08x]", dwError);
        return;
    }
    ForEachRecord(records, L"add", [this](const std::wstring& tstrRecord) {
        Trace(kTraceInfo, L"*** FrameworkDeployAgent::CreateDirBeforeReboot() - to add: [%s]", tstrRecord.c_str());
        PerformFileOperation(tstrRecord, op_dir_add);
    });
}

void FrameworkDeployAgent::RemoveFileAfterReboot()
{
    const OperationTrace trace(L"FrameworkDeployAgent::RemoveFileAfterReboot()");
    SectionRecords folders;
    SectionRecords files;
    DWORD dwError = ERROR_SUCCESS;
    if (!ReadInstructions(L"QOR_DIR", folders, dwError) || !ReadInstructions(L"QOR_FILE", files, dwError)) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - QueryValue failed. [0x%08x]", dwError);
        return;
    }
    ForEachRecord(folders, L"delete", [this](const std::wstring& tstrRecord) {
        Trace(kTraceInfo, L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - to delete folder: [%s]",
              tstrRecord.c_str());
        PerformFileOperation(tstrRecord, op_dir_delete);
    });
    ForEachRecord(files, L"delete", [this](const std::wstring& tstrRecord) {
        Trace(kTraceInfo, L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - to delete file: [%s]",
              tstrRecord.c_str());
        PerformFileOperation(tstrRecord, op_file_delete);
    });
    ForEachRecord(files, L"delete_now", [this](const std::wstring& tstrRecord) {
        Trace(kTraceInfo, L"*** FrameworkDeployAgent::RemoveFileAfterReboot() - deleting file: [%s]",
              tstrRecord.c_str());
        PerformFileOperation(tstrRecord, op_file_delete_now);
    });
}

void FrameworkDeployAgent::PerformFileOperation(const std::wstring& tstrData, int iOp)
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
    m_pathValues.ExpandPlaceholders(tstrPath);
    switch (iOp) {
        case op_dir_delete: ScheduleFolder(tstrPath); break;
        case op_dir_add: CreateFolder(tstrPath); break;
        case op_file_delete: ScheduleFiles(tstrPath); break;
        case op_file_delete_now: DeleteFilesNow(tstrPath); break;
        default: break;
    }
}
