// Deletions on a machine in memory, now or at the restart, and scheduled moves.
#include "check/simulate/SimulatedMachine.h"

#include "check/update/ErrorText.h"
#include "common/KzComn_LinkRule.h"
#include "common/KzComn_Result.h"

#include <algorithm>

using namespace KzCommon;
using Storage::Fail;

namespace Check {

namespace {

std::wstring WithoutBackslash(std::wstring tstrPath)
{
    while (tstrPath.ends_with(L'\\')) tstrPath.pop_back();
    return tstrPath;
}

}  // namespace

DWORD SimulatedMachine::WhyNotHeld(const std::wstring& tstrFolder) const
{
    const FullPath folder = FullPath(tstrFolder).WithoutBackslash();
    if (folder.IsDevice()) return ERROR_PATH_NOT_FOUND;
    if (m_files.LeadsThroughLink(folder)) return Storage::Directory::kStoppedOnLink;
    const Found found = At(folder);
    if (found.eKind != Found::Kind::eNone) return ERROR_SUCCESS;
    return found.dwError == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_PATH_NOT_FOUND} : found.dwError;
}

DWORD SimulatedMachine::TryDelete(const std::wstring& tstrPath)
{
    const FullPath path(tstrPath);
    if (path.IsDevice()) return ERROR_ACCESS_DENIED;
    const Found found = At(path);
    if (found.eKind == Found::Kind::eNone) return found.dwError;
    if (found.IsFolder()) return ERROR_ACCESS_DENIED;
    // The attributes that block a deletion are removed first, also for the file's other names.
    if (found.pState) found.pState->optAttributes = FILE_ATTRIBUTE_NORMAL;
    m_files.Remove(path);
    return ERROR_SUCCESS;
}

void SimulatedMachine::AddDeletion(const std::wstring& tstrPath, bool bAtRestart)
{
    Change change{.eAction = Action::eDelete, .eOutcome = Outcome::eRemove, .bAtRestart = bAtRestart};
    change.tstrTarget = tstrPath;
    Record(std::move(change));
}

void SimulatedMachine::RecordNoDeletion(const std::wstring& tstrTarget, bool bAtRestart, DWORD dwCode)
{
    Change change{.eAction = Action::eDelete, .eOutcome = Outcome::eFail, .bAtRestart = bAtRestart};
    change.tstrTarget = tstrTarget;
    if (dwCode == ERROR_FILE_NOT_FOUND || dwCode == ERROR_PATH_NOT_FOUND) {
        change.eOutcome = Outcome::eStay;
        change.tstrReason = L"no file matches";
    } else if (dwCode == ERROR_ACCESS_DENIED) {
        // The agent runs with more rights than the program that predicts it.
        change.eOutcome = Outcome::eUnknown;
        change.tstrReason = L"the folder cannot be listed: " + DescribeError(dwCode);
    } else {
        change.tstrReason = DescribeRefusal(dwCode);
    }
    Record(std::move(change));
}

bool SimulatedMachine::Spares(const Storage::Directory::Spared& isSpared, const std::wstring& tstrPath, bool bAtRestart)
{
    if (!isSpared(tstrPath)) return false;
    Change change{.eAction = Action::eDelete, .eOutcome = Outcome::eStay, .bAtRestart = bAtRestart};
    change.tstrTarget = tstrPath;
    change.tstrReason = L"the run itself keeps it";
    Record(std::move(change));
    return true;
}

bool SimulatedMachine::DeleteNow(const std::wstring& tstrPath, DWORD* pdwError)
{
    if (tstrPath.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    const DWORD dwCode = TryDelete(tstrPath);
    const auto itMade = m_made.find(FullPath(tstrPath).Text());
    if (dwCode == ERROR_SUCCESS && itMade != m_made.end()) {
        // Created and deleted by the run. A line that explains a failure stays.
        const std::size_t uMade = itMade->second;
        m_made.erase(itMade);
        if (m_log.At(uMade).eOutcome != Outcome::eFail) m_log.EraseTarget(uMade);
        return true;
    }
    if (dwCode == ERROR_SUCCESS) {
        AddDeletion(tstrPath, false);
        return true;
    }
    if (dwCode != ERROR_FILE_NOT_FOUND && dwCode != ERROR_PATH_NOT_FOUND) RecordNoDeletion(tstrPath, false, dwCode);
    return Fail(dwCode, pdwError);
}

bool SimulatedMachine::DeleteMatching(const std::wstring& tstrFolder, const std::wstring& tstrPattern, bool bAtRestart,
                                      DWORD* pdwError, const Storage::Directory::Spared& isSpared)
{
    DWORD dwCode = WhyNotHeld(tstrFolder);
    std::vector<std::wstring> files;
    const auto gather = [&](const Storage::Directory::Entry& entry) {
        if (!entry.bFolder && !Spares(isSpared, tstrFolder + entry.tstrName, bAtRestart)) {
            files.push_back(tstrFolder + entry.tstrName);
        }
    };
    if (dwCode == ERROR_SUCCESS && ForEachEntry(tstrFolder, tstrPattern, gather, &dwCode) && files.empty()) {
        dwCode = ERROR_FILE_NOT_FOUND;
    }
    if (dwCode != ERROR_SUCCESS) {
        RecordNoDeletion(tstrFolder + tstrPattern, bAtRestart, dwCode);
        return Fail(dwCode, pdwError);
    }
    Storage::FirstFailure failure;
    for (const std::wstring& tstrFile : files) {
        if (bAtRestart) {
            ScheduleDeletion(tstrFile);
            continue;
        }
        const DWORD dwDeleted = TryDelete(tstrFile);
        failure.Note(dwDeleted == ERROR_SUCCESS, dwDeleted);
        if (dwDeleted == ERROR_SUCCESS) AddDeletion(tstrFile, false);
        if (dwDeleted != ERROR_SUCCESS) RecordNoDeletion(tstrFile, false, dwDeleted);
    }
    return failure.Report(pdwError);
}

bool SimulatedMachine::DeleteMatchingNow(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                         DWORD* pdwError, const Storage::Directory::Spared& isSpared)
{
    return DeleteMatching(tstrFolder, tstrPattern, false, pdwError, isSpared);
}

bool SimulatedMachine::DeleteMatchingAtRestart(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                               DWORD* pdwError, const Storage::Directory::Spared& isSpared)
{
    return DeleteMatching(tstrFolder, tstrPattern, true, pdwError, isSpared);
}

std::size_t SimulatedMachine::Schedule(const FullPath& source, std::optional<FullPath> optDestination, Change change)
{
    const std::size_t uChange = Record(std::move(change));
    m_moves.push_back({source, std::move(optDestination), uChange});
    return uChange;
}

void SimulatedMachine::ScheduleDeletion(const std::wstring& tstrPath)
{
    const FullPath path(tstrPath);
    const Found found = At(path);
    // The attributes that block a deletion are removed now.
    constexpr DWORD kBlocking = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    if (found.IsFile() && (found.dwAttributes & kBlocking)) m_files.Own(path)->optAttributes = FILE_ATTRIBUTE_NORMAL;
    Change change{.eAction = Action::eDelete, .eOutcome = Outcome::eRemove, .bAtRestart = true};
    change.tstrTarget = tstrPath;
    static_cast<void>(Schedule(path, std::nullopt, std::move(change)));
}

DWORD SimulatedMachine::ForEachInTree(const FullPath& folder, const std::function<void(const std::wstring&)>& visit)
{
    // As in Storage::Directory::ForEachInTree().
    struct Pending {
        std::wstring tstrFolder;
        bool bListed;
    };
    DWORD dwFirst = ERROR_SUCCESS;
    std::vector<Pending> stack{{folder.Text(), IsLink(folder.Text())}};
    while (!stack.empty()) {
        const Pending next = stack.back();
        stack.pop_back();
        if (next.bListed) {
            visit(next.tstrFolder);
            continue;
        }
        stack.push_back({next.tstrFolder, true});
        DWORD dwError = ERROR_SUCCESS;
        const auto visitEntry = [&](const Storage::Directory::Entry& entry) {
            const std::wstring tstrPath = next.tstrFolder + L'\\' + entry.tstrName;
            if (entry.bFolder && !entry.bLink) {
                stack.push_back({tstrPath, false});
            } else {
                visit(tstrPath);
            }
        };
        const bool bOk = ForEachEntry(next.tstrFolder + L'\\', L"*", visitEntry, &dwError);
        if (!bOk && dwError != ERROR_FILE_NOT_FOUND && dwFirst == ERROR_SUCCESS) dwFirst = dwError;
    }
    return dwFirst;
}

bool SimulatedMachine::DeleteTreeAtRestart(const std::wstring& tstrFolder, DWORD* pdwError,
                                           const Storage::Directory::Spared& isSpared)
{
    const FullPath folder = FullPath(tstrFolder).WithoutBackslash();
    const DWORD dwCode = folder.IsDevice() ? DWORD{ERROR_PATH_NOT_FOUND} : WhyNotHeld(folder.Parent().Text());
    if (dwCode != ERROR_SUCCESS) {
        RecordNoDeletion(WithoutBackslash(tstrFolder), true, dwCode);
        return Fail(dwCode, pdwError);
    }
    const DWORD dwListed = ForEachInTree(folder, [&](const std::wstring& tstrPath) {
        if (!Spares(isSpared, tstrPath, true)) ScheduleDeletion(tstrPath);
    });
    if (dwListed == ERROR_ACCESS_DENIED) RecordNoDeletion(WithoutBackslash(tstrFolder), true, dwListed);
    return dwListed == ERROR_SUCCESS || Fail(dwListed, pdwError);
}

}  // namespace Check
