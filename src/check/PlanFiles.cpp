// The files and folders of a plan.
#include "check/PlanSteps.h"

#include "check/ErrorWords.h"

#include "agent/ComponentFiles.h"
#include "agent/FileOperations.h"
#include "common/KzComn_File.h"
#include "common/KzComn_LinkRule.h"
#include "common/KzComn_String.h"

#include <algorithm>

using namespace KzCommon;

namespace Check {

namespace {

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

const wchar_t kLink[] = L"a junction or symbolic link leads there";

/// Windows moves no file to another volume at the restart.
bool IsSameVolume(const PlanWork& work, const std::wstring& tstrLeft, const std::wstring& tstrRight)
{
    const PathValues::Volume& left = work.paths.VolumeOf(String::FolderPart(tstrLeft));
    const PathValues::Volume& right = work.paths.VolumeOf(String::FolderPart(tstrRight));
    if (left.dwError != ERROR_SUCCESS || right.dwError != ERROR_SUCCESS) return true;
    return String::EqualsNoCase(left.tstrMountPoint, right.tstrMountPoint);
}

/// Whether Windows takes paths of more than 259 characters from the agent, which asks for it.
bool AreLongPathsOn(const PlanWork& work)
{
    const auto optValue = work.forecast.Value(L"SYSTEM\\CurrentControlSet\\Control\\FileSystem", L"LongPathsEnabled");
    return optValue && optValue->tstrText != L"0";
}

/// Why the file cannot be put under that path; empty when it can.
std::wstring Obstacle(const PlanWork& work, const std::wstring& tstrSource, const std::wstring& tstrTarget)
{
    if (std::max(tstrSource.size(), tstrTarget.size()) >= MAX_PATH && !AreLongPathsOn(work)) {
        return L"longer than 259 characters, in its place or in the download folder";
    }
    if (work.paths.LeadsThroughLink(String::FolderPart(tstrTarget))) return kLink;
    if (!work.forecast.HasFolder(String::FolderPart(tstrTarget))) return L"the folder is missing";
    if (work.forecast.HasFolder(tstrTarget)) return L"a folder has that name";
    return {};
}

/// The first free name beside the destination; empty when all are taken.
std::wstring FindStageName(const PlanWork& work, const std::wstring& tstrTarget)
{
    for (unsigned long ulIndex = 0; ulIndex < kStageNames; ++ulIndex) {
        std::wstring tstrName = tstrTarget + std::to_wstring(ulIndex);
        if (!work.forecast.HasFile(tstrName) && !work.forecast.HasFolder(tstrName)) return tstrName;
    }
    return {};
}

void Stage(PlanWork& work, Change& change)
{
    change.eAction = Action::eStage;
    if (change.eOutcome == Outcome::eFail) return;
    change.tstrStaged = FindStageName(work, change.tstrTarget);
    if (change.tstrStaged.empty()) {
        change.eOutcome = Outcome::eFail;
        change.tstrReason = L"no name beside it is free for the copy";
        return;
    }
    work.forecast.AddFile(change.tstrStaged);
}

void PlanMove(PlanWork& work, const std::wstring& tstrSource, const std::wstring& tstrTarget)
{
    Change change{.eAction = Action::eMove,
                  .eOutcome = work.forecast.HasFile(tstrTarget) ? Outcome::eReplace : Outcome::eNew,
                  .bAtRestart = true};
    change.tstrSource = tstrSource;
    change.tstrTarget = tstrTarget;
    const std::wstring tstrThen = work.forecast.PlaceThen(tstrSource);
    change.tstrReason = Obstacle(work, tstrThen, tstrTarget);
    const bool bSameDrive = IsSameDrive(tstrThen, tstrTarget);
    if (bSameDrive && change.tstrReason.empty() && !IsSameVolume(work, tstrThen, tstrTarget)) {
        change.tstrReason = L"on another volume: Windows moves no file there at the restart";
    }
    if (!change.tstrReason.empty()) change.eOutcome = Outcome::eFail;
    if (!bSameDrive) Stage(work, change);
    work.Add(std::move(change));
}

void Refuse(PlanWork& work, const std::wstring& tstrTarget, bool bAtRestart, Outcome eOutcome, std::wstring tstrReason)
{
    Change change{.eAction = Action::eDelete, .eOutcome = eOutcome, .bAtRestart = bAtRestart};
    change.tstrTarget = tstrTarget;
    change.tstrReason = std::move(tstrReason);
    work.Add(std::move(change));
}

void AddDeletion(PlanWork& work, const std::wstring& tstrPath, bool bAtRestart)
{
    if (work.paths.IsKeptFile(tstrPath)) {
        return Refuse(work, tstrPath, bAtRestart, Outcome::eStay, L"the run itself keeps it");
    }
    Change change{.eAction = Action::eDelete, .eOutcome = Outcome::eRemove, .bAtRestart = bAtRestart};
    change.tstrTarget = tstrPath;
    work.Add(std::move(change));
}

/// The caller cannot see whether files are there.
void AddUnknown(PlanWork& work, const std::wstring& tstrTarget, bool bAtRestart, DWORD dwError)
{
    Refuse(work, tstrTarget, bAtRestart, Outcome::eUnknown, L"the folder cannot be listed: " + WordsOf(dwError));
}

void DeleteFolder(PlanWork& work, const FileRecord& record)
{
    if (!work.forecast.HasFolder(record.tstrFolder)) {
        const DWORD dwUnknown = work.forecast.WhyUnknown(record.tstrFolder);
        if (dwUnknown != ERROR_SUCCESS) return AddUnknown(work, record.tstrPath, true, dwUnknown);
        return Refuse(work, record.tstrPath, true, Outcome::eStay, L"there is no such folder");
    }
    if (record.eRefusal != FileRefusal::eNone) {
        return Refuse(work, record.tstrPath, true, Outcome::eFail, ReasonOf(record.eRefusal));
    }
    const std::wstring tstrFolder = Storage::Directory::FullPath(record.tstrFolder);
    if (Storage::Directory::LeadsThroughLink(String::FolderPart(tstrFolder))) {
        return Refuse(work, record.tstrPath, true, Outcome::eFail, kLink);
    }
    DWORD dwError = ERROR_SUCCESS;
    for (const std::wstring& tstrPath : work.forecast.Tree(tstrFolder, dwError)) AddDeletion(work, tstrPath, true);
    if (dwError != ERROR_SUCCESS) AddUnknown(work, record.tstrPath, true, dwError);
}

void DeleteFiles(PlanWork& work, const FileRecord& record, bool bAtRestart)
{
    if (record.eRefusal != FileRefusal::eNone) {
        return Refuse(work, record.tstrPath, bAtRestart, Outcome::eFail, ReasonOf(record.eRefusal));
    }
    if (Storage::Directory::LeadsThroughLink(record.tstrFolder)) {
        return Refuse(work, record.tstrPath, bAtRestart, Outcome::eFail, kLink);
    }
    DWORD dwError = ERROR_SUCCESS;
    const std::vector<std::wstring> files = work.forecast.FilesIn(record.tstrFolder, record.tstrPattern, dwError);
    if (dwError != ERROR_SUCCESS) {
        AddUnknown(work, record.tstrPath, bAtRestart, dwError);
    } else if (files.empty()) {
        return Refuse(work, record.tstrPath, bAtRestart, Outcome::eStay, L"no file is called so");
    }
    for (const std::wstring& tstrFile : files) {
        AddDeletion(work, tstrFile, bAtRestart);
        if (!bAtRestart) work.forecast.RemoveFile(tstrFile);
    }
}

void CreateFolder(PlanWork& work, const FileRecord& record, bool bLengthValid)
{
    Change change{.eAction = Action::eCreateFolder, .eOutcome = Outcome::eNew};
    change.tstrTarget = record.tstrPath;
    const std::wstring tstrFull = Storage::Directory::FullPath(record.tstrFolder);
    const std::wstring tstrRoot = tstrFull.substr(0, Storage::Directory::RootLength(tstrFull)) + L'\\';
    if (!bLengthValid) {
        change.tstrReason = kTooLong;
    } else if (work.forecast.HasFolder(record.tstrFolder)) {
        change.eOutcome = Outcome::eStay;
    } else if (record.eRefusal != FileRefusal::eNone) {
        change.tstrReason = ReasonOf(record.eRefusal);
    } else if (work.forecast.HasFile(tstrFull)) {
        change.tstrReason = L"a file has that name";
    } else if (!Storage::Directory::IsExisted(tstrRoot)) {
        change.tstrReason = L"there is no such drive";
    } else if (Storage::Directory::LeadsThroughLink(tstrFull)) {
        change.tstrReason = kLink;
    } else {
        work.forecast.AddFolder(tstrFull);
    }
    if (!change.tstrReason.empty()) change.eOutcome = Outcome::eFail;
    work.Add(std::move(change));
}

}  // namespace

bool PlanCopy(PlanWork& work, Action eAction, const std::wstring& tstrSource, const std::wstring& tstrTarget,
              bool bOverReadOnly)
{
    Change change{.eAction = eAction,
                  .eOutcome = work.forecast.HasFile(tstrTarget) ? Outcome::eReplace : Outcome::eNew};
    change.tstrSource = tstrSource;
    change.tstrTarget = tstrTarget;
    change.tstrReason = Obstacle(work, work.forecast.PlaceThen(tstrSource), tstrTarget);
    if (!work.forecast.HasFile(tstrSource)) change.tstrReason = L"there is no such file to copy";
    if (eAction == Action::eCopy && !bOverReadOnly && change.tstrReason.empty() &&
        work.forecast.IsReadOnly(tstrTarget)) {
        change.tstrReason = L"the file there is read-only";
    }
    const bool bOk = change.tstrReason.empty();
    if (!bOk) change.eOutcome = Outcome::eFail;
    if (bOk) work.forecast.AddFile(tstrTarget);
    work.Add(std::move(change));
    return bOk;
}

void PlanFileRecord(PlanWork& work, FileOp eOp, const std::wstring& tstrRecord)
{
    const bool bLengthValid = IsRecordLengthValid(tstrRecord);
    const bool bAtRestart = eOp != op_file_delete_now;
    if (!bLengthValid && eOp != op_dir_add) return Refuse(work, tstrRecord, bAtRestart, Outcome::eFail, kTooLong);
    const FileRecord record = ParseFileRecord(eOp, work.Expand(tstrRecord));
    switch (eOp) {
        case op_dir_add: return CreateFolder(work, record, bLengthValid);
        case op_dir_delete: return DeleteFolder(work, record);
        default: return DeleteFiles(work, record, bAtRestart);
    }
}

void PlanCopies(PlanWork& work, const PackageLayout::DeployStep& step, const PackageLayout::BaseFolders& bases)
{
    using namespace PackageLayout;
    for (const CopyRow& row : step.rows) {
        const std::wstring tstrSourceDir = bases.FolderOf(row.source);
        const std::wstring tstrTargetDir = bases.FolderOf(row.destination);
        if (tstrSourceDir.empty() || tstrTargetDir.empty()) continue;
        std::set<std::wstring> known;
        const auto add = [&](const std::wstring& tstrSource, const std::wstring& tstrTarget) {
            known.insert(LowerCase(work.forecast.PlaceThen(tstrSource)));
            if (row.eWhen == When::eAtRestart) {
                PlanMove(work, tstrSource, tstrTarget);
            } else {
                static_cast<void>(PlanCopy(work, Action::eCopy, tstrSource, tstrTarget));
            }
        };
        ForEachFileToCopy(tstrSourceDir, L"*.*", tstrTargetDir, row.eDepth == Depth::eWithSubfolders, add);
        // And what the run itself puts among them before.
        const std::wstring tstrThen = work.forecast.PlaceThen(tstrSourceDir);
        for (const std::wstring& tstrFile : work.forecast.AddedFilesIn(tstrThen, L"*.*")) {
            const std::wstring tstrName = tstrFile.substr(tstrThen.size());
            if (!known.contains(LowerCase(tstrFile))) add(tstrSourceDir + tstrName, tstrTargetDir + tstrName);
        }
    }
}

void NoteSameTargets(PlanWork& work)
{
    std::map<std::wstring, std::wstring> arrivals;  // by name in small letters: where they come from
    for (PlanStep& step : work.plan.steps) {
        for (Change& change : step.changes) {
            const bool bFile = change.eAction == Action::eMove || change.eAction == Action::eStage;
            if (!bFile || change.eOutcome == Outcome::eFail) continue;
            const auto [itFirst, bNew] = arrivals.try_emplace(LowerCase(change.tstrTarget), change.tstrSource);
            if (bNew) continue;
            change.eOutcome = Outcome::eReplace;
            change.tstrReason = L"takes the place of " + std::exchange(itFirst->second, change.tstrSource);
        }
    }
}

}  // namespace Check
