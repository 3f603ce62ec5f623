#include "agent/ComponentFiles.h"

#include "common/KzComn_DebugLog.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_LinkRule.h"
#include "common/KzComn_Retry.h"
#include "common/KzComn_String.h"

#include <cwchar>
#include <utility>
#include <vector>

using namespace KzCommon;

namespace {

constexpr std::size_t kDriveRootLength = 3;  // "C:\\"

/// The drive of a path, "C:". False, with a trace line, when the path has no drive.
bool DriveOf(const std::wstring& tstrPath, std::wstring& tstrDrive)
{
    wchar_t szDrive[_MAX_DRIVE] = {};
    const int iError = ::_wsplitpath_s(tstrPath.c_str(), szDrive, _MAX_DRIVE, nullptr, 0, nullptr, 0, nullptr, 0);
    if (iError != 0) {
        Trace(kTraceError, L"::_tsplitpath_s(%s) failed: %d", tstrPath.c_str(), iError);
        return false;
    }
    tstrDrive = szDrive;
    return true;
}

/// Delayed moves cannot cross volumes, and a folder of the same drive may be a mount point of another volume.
void WarnOfMountPoint(const RunContext& run, const std::wstring& tstrFile)
{
    const Volume& volume = run.paths.VolumeOf(String::FolderPart(tstrFile));
    if (volume.dwError != ERROR_SUCCESS) {
        Trace(kTraceError, L"::GetVolumePathName(%s) failed: %d", tstrFile.c_str(), volume.dwError);
        return;
    }
    if (volume.tstrMountPoint.size() > kDriveRootLength) {
        Trace(kTraceError, L"\"%s\" contains a volume mount point \"%s\"", tstrFile.c_str(),
              volume.tstrMountPoint.c_str());
    }
}

/// Copies the source beside the destination under the first free stage name. A copy left by an interrupted run stays:
/// it cannot be distinguished from a user's file, so the next run takes the next name.
bool StageCopy(Machine& machine, const std::wstring& tstrSource, const std::wstring& tstrDestination,
               std::wstring& tstrStaged)
{
    DWORD dwError = ERROR_SUCCESS;
    for (unsigned long ulIndex = 0; ulIndex < kStageNames; ++ulIndex) {
        std::wstring tstrIndex;
        if (!String::UlToStr(ulIndex, tstrIndex)) {
            Trace(kTraceError, L"KzCommon::String::UlToStr() failed: %d", ::GetLastError());
            continue;
        }
        const std::wstring tstrTempFileWithIndex = tstrDestination + tstrIndex;
        Trace(kTraceInfo, L"tsTempFileWithIndex: %s", tstrTempFileWithIndex.c_str());
        // Wait for a source that is in use once, not for each name.
        const CopyMode eMode = Storage::IsInUse(dwError) ? CopyMode::eNewImmediate : CopyMode::eNew;
        if (machine.CopyNow(tstrTempFileWithIndex, tstrSource, eMode, &dwError)) {
            tstrStaged = tstrTempFileWithIndex;
            return true;
        }
        if (dwError == ERROR_FILE_EXISTS || dwError == ERROR_ALREADY_EXISTS) {
            Trace(kTraceInfo, L"::CopyFile(%s) failed: ERROR_ALREADY_EXISTS", tstrTempFileWithIndex.c_str());
        } else {
            Trace(kTraceError, L"::CopyFile(%s) failed: 0x%08X", tstrTempFileWithIndex.c_str(), dwError);
        }
    }
    Trace(kTraceError, L"could not create temp file");
    return false;
}

/// Reports a file, or a folder with its contents, that is not copied.
void ReportUncopied(Machine& machine, const std::wstring& tstrSource, const std::wstring& tstrDestination,
                    bool bAfterReboot, const wchar_t* szReason)
{
    Change change{.eAction = bAfterReboot ? Action::eMove : Action::eCopy, .eOutcome = Outcome::eFail};
    change.tstrTarget = tstrDestination;
    change.tstrSource = tstrSource;
    change.tstrReason = szReason;
    machine.Report(change);
}

bool RefuseMove(const std::wstring& tstrSource, const std::wstring& tstrDestination, DWORD dwError)
{
    Trace(kTraceError, L"::MoveFileEx(%s, %s) failed: 0x%08X", tstrSource.c_str(), tstrDestination.c_str(), dwError);
    return false;
}

void CopyOne(const RunContext& run, const std::wstring& tstrSource, const std::wstring& tstrDestination,
             bool bAfterReboot)
{
    if (bAfterReboot) {
        static_cast<void>(CopyFileAfterReboot(run, tstrSource, tstrDestination));
        return;
    }
    DWORD dwError = ERROR_SUCCESS;
    if (!run.machine.CopyNow(tstrDestination, tstrSource, CopyMode::eOverwrite, &dwError)) {
        Trace(kTraceError, L"Failed to do file copy. dest='%s', src='%s', error code=%d", tstrDestination.c_str(),
              tstrSource.c_str(), dwError);
    }
}

/// One folder of a walk; the entries before `uNext` are done.
struct WalkLevel {
    std::wstring tstrSourceDir;
    std::wstring tstrDestinationDir;
    std::vector<Storage::Directory::Entry> entries;
    std::size_t uNext = 0;
};

/// Lists a folder of a walk. A missing folder is a failure except for the first folder of the walk.
WalkLevel ListLevel(const Machine& machine, std::wstring tstrSourceDir, std::wstring tstrDestinationDir,
                    const std::wstring& tstrPattern, bool bFirst, const SkipVisitor& skip)
{
    WalkLevel level{
        .tstrSourceDir = std::move(tstrSourceDir), .tstrDestinationDir = std::move(tstrDestinationDir), .entries = {}};
    const auto add = [&](const Storage::Directory::Entry& entry) {
        level.entries.push_back(entry);
    };
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.ForEachEntry(level.tstrSourceDir, tstrPattern, add, &dwError) && dwError != ERROR_FILE_NOT_FOUND &&
        !(bFirst && dwError == ERROR_PATH_NOT_FOUND)) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::CopyDirectory() - ::FindFirstFile(%s) failed. [0x%08x]",
              level.tstrSourceDir.c_str(), dwError);
        if (skip) skip(level.tstrSourceDir, level.tstrDestinationDir, L"the folder cannot be listed");
    }
    return level;
}

/// Traces and reports a link: its target does not belong to the package, and moving it could remove another program's
/// files.
void SkipLink(const std::wstring& tstrSourceDir, const std::wstring& tstrDestinationDir, const SkipVisitor& skip)
{
    Trace(kTraceError, L"*** FrameworkDeployAgent::CopyDirectory() - [%s] is a link and is not followed.",
          tstrSourceDir.c_str());
    if (skip) skip(tstrSourceDir, tstrDestinationDir, L"a link, which is not followed");
}

}  // namespace

bool IsSameDrive(const std::wstring& tstrLeft, const std::wstring& tstrRight)
{
    std::wstring tstrLeftDrive;
    std::wstring tstrRightDrive;
    if (!DriveOf(tstrLeft, tstrLeftDrive) || !DriveOf(tstrRight, tstrRightDrive)) return true;
    return String::EqualsNoCase(tstrLeftDrive, tstrRightDrive);
}

bool CopyDirectory(const RunContext& run, const std::wstring& tstrSourceDir, const std::wstring& tstrPattern,
                   const std::wstring& tstrDestinationDir, bool bRecurse, bool bAfterReboot)
{
    const OperationTrace trace(L"FrameworkDeployAgent::CopyDirectory()");
    if (tstrSourceDir.empty() || tstrDestinationDir.empty()) {
        Trace(kTraceError, L"*** FrameworkDeployAgent::CopyDirectory() - unknown folder, source[%s], destination[%s]",
              tstrSourceDir.c_str(), tstrDestinationDir.c_str());
        ReportUncopied(run.machine, tstrSourceDir, tstrDestinationDir, bAfterReboot, L"a folder is unknown");
        return true;
    }
    const auto copy = [&](const std::wstring& tstrSource, const std::wstring& tstrDestination) {
        CopyOne(run, tstrSource, tstrDestination, bAfterReboot);
    };
    const auto skip = [&](const std::wstring& tstrSource, const std::wstring& tstrDestination, const wchar_t* szWhy) {
        ReportUncopied(run.machine, tstrSource, tstrDestination, bAfterReboot, szWhy);
    };
    ForEachFileToCopy(run.machine, tstrSourceDir, tstrPattern, tstrDestinationDir, bRecurse, copy, skip);
    return true;
}

void ForEachFileToCopy(const Machine& machine, const std::wstring& tstrSourceDir, const std::wstring& tstrPattern,
                       const std::wstring& tstrDestinationDir, bool bRecurse, const CopyVisitor& visit,
                       const SkipVisitor& skip)
{
    const std::wstring tstrRoot = String::EnsureBackslash(tstrSourceDir);
    // Most packages lack most of these folders; checking the attributes first is fastest.
    DWORD dwAttributes = 0;
    DWORD dwError = ERROR_SUCCESS;
    if (!machine.ReadAttributes(Storage::Directory::FullPath(tstrRoot), dwAttributes, &dwError) &&
        (dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND)) {
        return;
    }
    const std::wstring tstrTarget = String::EnsureBackslash(tstrDestinationDir);
    if (machine.IsLink(tstrRoot)) return SkipLink(tstrRoot, tstrTarget, skip);
    // The folders from the top to the current one. No recursion: a tree can be too deep for the stack.
    std::vector<WalkLevel> levels;
    levels.push_back(ListLevel(machine, tstrRoot, tstrTarget, tstrPattern, true, skip));
    while (!levels.empty()) {
        WalkLevel& level = levels.back();
        if (level.uNext == level.entries.size()) {
            levels.pop_back();
            continue;
        }
        const Storage::Directory::Entry entry = std::move(level.entries[level.uNext++]);
        if (!entry.bFolder && Storage::File::IsTemporaryName(entry.tstrName)) continue;  // left by an interrupted run
        const std::wstring tstrSource = level.tstrSourceDir + entry.tstrName;
        const std::wstring tstrDestination = level.tstrDestinationDir + entry.tstrName;
        if (!entry.bFolder) {
            visit(tstrSource, tstrDestination);
        } else if (bRecurse && entry.bLink) {
            SkipLink(tstrSource, tstrDestination, skip);
        } else if (bRecurse) {
            levels.push_back(ListLevel(machine, tstrSource + L'\\', tstrDestination + L'\\', tstrPattern, false, skip));
        }
    }
}

bool CopyFileAfterReboot(const RunContext& run, const std::wstring& tstrSource, const std::wstring& tstrDestination)
{
    const OperationTrace trace(L"FrameworkDeployAgent::CopyFileAfterReboot()");
    Trace(kTraceInfo, L"src: %s, dst:%s", tstrSource.c_str(), tstrDestination.c_str());
    String::PathParts parts;
    if (const int iError = String::SplitPath(tstrSource, parts); iError != 0) {
        Trace(kTraceError, L"::_tsplitpath_s() failed: %d", iError);
        ReportUncopied(run.machine, tstrSource, tstrDestination, true, L"a part of the path is too long");
        return false;
    }

    // At the restart, Windows follows any link in the path with the system's rights. Only the links that exist now can
    // be checked.
    if (run.paths.LeadsThroughLink(String::FolderPart(tstrDestination))) {
        ReportUncopied(run.machine, tstrSource, tstrDestination, true, L"a junction or symbolic link leads there");
        return RefuseMove(tstrSource, tstrDestination, Storage::Directory::kStoppedOnLink);
    }

    std::wstring tstrStaged = tstrSource;
    const bool bSameDrive = IsSameDrive(tstrSource, tstrDestination);
    if (bSameDrive) {
        WarnOfMountPoint(run, tstrSource);
        WarnOfMountPoint(run, tstrDestination);
        Trace(kTraceInfo, L"Move file in same drive, tsTempFileWithIndex[%s]", tstrStaged.c_str());
    } else {
        Trace(kTraceInfo, L"copy to a different drive");
        if (!StageCopy(run.machine, tstrSource, tstrDestination, tstrStaged)) return false;
    }

    DWORD dwError = ERROR_SUCCESS;
    if (!run.machine.MoveAtRestart(tstrStaged, tstrDestination, &dwError)) {
        // Nothing will move the staged copy, so it would stay forever.
        if (!bSameDrive) static_cast<void>(run.machine.DeleteNow(tstrStaged, nullptr));
        return RefuseMove(tstrStaged, tstrDestination, dwError);
    }
    return true;
}
