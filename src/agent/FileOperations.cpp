#include "agent/FileOperations.h"

#include "agent/Sections.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_File.h"
#include "common/KzComn_String.h"

using namespace KzCommon;

namespace {

// The code for a refused path: one that depends on the current folder or on an unset placeholder could mean anything.
constexpr DWORD kNotAFullPath = ERROR_BAD_PATHNAME;

void Refuse(FileRecord& record, FileRefusal eRefusal, DWORD dwCode)
{
    record.eRefusal = eRefusal;
    record.dwRefusal = dwCode;
}

void ParseFolder(FileRecord& record)
{
    const bool bClear = record.traits.eAction == Action::eDelete;
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

const wchar_t* ReasonOf(FileRefusal eRefusal)
{
    switch (eRefusal) {
        case FileRefusal::eTooLong: return L"longer than 260 characters";
        case FileRefusal::eNotSplit: return L"a part of the path is too long";
        case FileRefusal::eNotAFullPath: return L"no full path, or a whole drive";
        case FileRefusal::eNone: break;
    }
    return L"";
}

/// Reports a record for which no request is made to the machine.
void ReportUndone(Machine& machine, const FileRecord& record, Outcome eOutcome, const std::wstring& tstrReason)
{
    Change change{.eAction = record.traits.eAction, .eOutcome = eOutcome, .bAtRestart = record.traits.bAtRestart};
    change.tstrTarget = record.tstrPath;
    change.tstrSource = record.tstrSource;
    change.tstrReason = tstrReason;
    machine.Report(change);
}

void TraceFailedDelete(const FileRecord& record, DWORD dwError)
{
    Trace(kTraceError, L"Failed to delete file '%s%s', error = %d.", record.tstrFolder.c_str(),
          record.tstrPattern.c_str(), dwError);
}

/// Protects the files that the run keeps: no record may delete them.
Storage::Directory::Spared KeptBy(const RunContext& run)
{
    return [&run](const std::wstring& tstrPath) {
        const bool bKept = run.paths.IsKeptFile(tstrPath);
        if (bKept) {
            Trace(kTraceInfo, L"*** FrameworkDeployAgent::PerformFileOperation() - [%s] is kept by this run and stays.",
                  tstrPath.c_str());
        }
        return bKept;
    };
}

void ScheduleFolder(const RunContext& run, const FileRecord& record)
{
    Machine& machine = run.machine;
    if (!machine.HasFolder(record.tstrFolder)) {
        Trace(kTraceError, L"No files under directory '%s'", record.tstrPath.c_str());
        ReportUndone(machine, record, Outcome::eStay, L"there is no such folder");
        return;
    }
    if (record.eRefusal != FileRefusal::eNone) {
        TraceFailedDelete(record, record.dwRefusal);
        ReportUndone(machine, record, Outcome::eFail, ReasonOf(record.eRefusal));
        return;
    }
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.DeleteTreeAtRestart(record.tstrFolder, &dwError, KeptBy(run))) TraceFailedDelete(record, dwError);
}

void TraceFailedFolder(const FileRecord& record, DWORD dwError)
{
    Trace(kTraceError, L"Failed to create directory '%s', error = %d.", record.tstrPath.c_str(), dwError);
}

void MakeFolder(Machine& machine, const FileRecord& record)
{
    if (machine.HasFolder(record.tstrFolder)) {
        Trace(kTraceInfo, L"Directory '%s' is already there.", record.tstrPath.c_str());
        ReportUndone(machine, record, Outcome::eStay, {});
        return;
    }
    if (record.eRefusal != FileRefusal::eNone) {
        TraceFailedFolder(record, record.dwRefusal);
        ReportUndone(machine, record, Outcome::eFail, ReasonOf(record.eRefusal));
        return;
    }
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.CreateFolder(record.tstrFolder, &dwError)) TraceFailedFolder(record, dwError);
}

/// How a kind of removal works: the request and the trace line for a path that is too long.
struct Removal {
    bool (Machine::*pfnRemove)(const std::wstring& tstrFolder, const std::wstring& tstrPattern, DWORD* pdwError,
                               const Storage::Directory::Spared& isSpared);
    TraceFormat<int> tooLong;
};
constexpr Removal kAtRestart{&Machine::DeleteMatchingAtRestart,
                             L"_MAX_PATH<strPath.length() --> %d. Cnnot do further."};
constexpr Removal kNow{&Machine::DeleteMatchingNow, L"_MAX_PATH<strPath.length() --> %d. Cannot do further."};

void RemoveMatching(const RunContext& run, const FileRecord& record, const Removal& removal)
{
    DWORD dwError = record.dwRefusal;
    switch (record.eRefusal) {
        case FileRefusal::eTooLong:
            Trace(kTraceError, removal.tooLong, static_cast<int>(record.tstrPath.size()));
            break;
        case FileRefusal::eNotSplit:
            Trace(kTraceError, L"Failed to do _tsplitpath_s(), error code = %d.", dwError);
            break;
        case FileRefusal::eNotAFullPath: TraceFailedDelete(record, dwError); break;
        case FileRefusal::eNone:
            if (!(run.machine.*removal.pfnRemove)(record.tstrFolder, record.tstrPattern, &dwError, KeptBy(run))) {
                TraceFailedDelete(record, dwError);
            }
            return;
    }
    ReportUndone(run.machine, record, Outcome::eFail, ReasonOf(record.eRefusal));
}

}  // namespace

FileRecord ParseFileRecord(int iOp, const std::wstring& tstrExpanded)
{
    FileRecord record;
    record.tstrPath = tstrExpanded;
    const std::optional<FileOpTraits> optTraits = TraitsOf(static_cast<FileOp>(iOp));
    if (!optTraits) return record;
    record.traits = *optTraits;
    if (record.traits.bFolder) {
        ParseFolder(record);
    } else {
        ParsePattern(record);
    }
    return record;
}

void CreateDirBeforeReboot(const RunContext& run)
{
    const OperationTrace trace(L"FrameworkDeployAgent::CreateDirBeforeReboot()");
    run.machine.BeginOperation(L"CreateDirBeforeReboot");
    constexpr const Section& kSection = SectionOf(L"QOR_DIR", L"CreateDirBeforeReboot");
    SectionRecords records;
    if (ReadSection(run.machine, kSection, records)) CarryOutRecords(run, kSection, records);
}

void RemoveFileAfterReboot(const RunContext& run)
{
    const OperationTrace trace(L"FrameworkDeployAgent::RemoveFileAfterReboot()");
    run.machine.BeginOperation(L"RemoveFileAfterReboot");
    constexpr const Section& kFolders = SectionOf(L"QOR_DIR", L"RemoveFileAfterReboot");
    constexpr const Section& kFiles = SectionOf(L"QOR_FILE", L"RemoveFileAfterReboot");
    SectionRecords folders;
    SectionRecords files;
    if (!ReadSection(run.machine, kFolders, folders) || !ReadSection(run.machine, kFiles, files)) return;
    CarryOutRecords(run, kFolders, folders);
    CarryOutRecords(run, kFiles, files);
}

void Records::ChangeFiles(const RunContext& run, const SectionKey& key, const std::wstring& tstrRecord)
{
    TraceRecord(key, tstrRecord);
    PerformFileOperation(run, tstrRecord, FileOpOf(key.eEffect));
}

void PerformFileOperation(const RunContext& run, const std::wstring& tstrData, int iOp)
{
    const OperationTrace trace(L"FrameworkDeployAgent::PerformFileOperation()");
    if (!IsRecordLengthValid(tstrData)) {
        Trace(kTraceError, L"PerformFileOperation(tszData==empty || tszData.size()>1023)");
        ReportUndone(run.machine, ParseFileRecord(iOp, tstrData), Outcome::eFail, kRecordTooLong);
        return;
    }
    if (iOp < op_begin_file || iOp > op_end_file) {
        Trace(kTraceError, L"PerformFileOperation(op<op_begin_file || op>op_end_file)");
        return;
    }
    std::wstring tstrPath = tstrData;
    run.paths.ExpandPlaceholders(tstrPath);
    const FileRecord record = ParseFileRecord(iOp, tstrPath);
    switch (iOp) {
        case op_dir_delete: ScheduleFolder(run, record); break;
        case op_dir_add: MakeFolder(run.machine, record); break;
        case op_file_delete: RemoveMatching(run, record, kAtRestart); break;
        case op_file_delete_now: RemoveMatching(run, record, kNow); break;
        default: break;
    }
}
