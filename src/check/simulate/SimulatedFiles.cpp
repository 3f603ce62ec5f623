// Files and folders of a machine in memory: reading, creating, copying.
#include "check/simulate/SimulatedMachine.h"

#include "check/update/LongPath.h"
#include "common/KzComn_FileReplace.h"
#include "common/KzComn_LinkRule.h"
#include "common/KzComn_Result.h"

#include <algorithm>

using namespace KzCommon;
using Storage::Fail;

namespace Check {

namespace {

constexpr DWORD kHiding = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
constexpr DWORD kCopied = FILE_ATTRIBUTE_READONLY | kHiding | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
constexpr std::size_t kLongestFolder = 247;
constexpr wchar_t kTooLongPath[] = L"longer than 259 characters, there or in the download folder";

bool Result(DWORD dwCode, DWORD* pdwError)
{
    return dwCode == ERROR_SUCCESS || Fail(dwCode, pdwError);
}

bool IsOtherDrive(const FullPath& left, const FullPath& right)
{
    return !String::EqualsNoCase(left.Root(), right.Root());
}

}  // namespace

bool SimulatedMachine::ReadAttributes(const std::wstring& tstrPath, DWORD& dwAttributes, DWORD* pdwError) const
{
    const Found found = At(tstrPath);
    if (found.eKind == Found::Kind::eNone) return Fail(found.dwError, pdwError);
    dwAttributes = found.dwAttributes;
    return true;
}

bool SimulatedMachine::IsLink(const std::wstring& tstrPath) const
{
    const FullPath path(tstrPath);
    return !path.IsDevice() && Judge(path) == ERROR_SUCCESS && m_files.IsLink(path);
}

bool SimulatedMachine::LeadsThroughLink(const std::wstring& tstrFolder) const
{
    const FullPath path(tstrFolder);
    return !path.IsDevice() && path.Error() == ERROR_SUCCESS && m_files.LeadsThroughLink(path);
}

bool SimulatedMachine::ForEachEntry(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                    const std::function<void(const Storage::Directory::Entry&)>& visit,
                                    DWORD* pdwError) const
{
    const std::wstring tstrWanted = tstrFolder + tstrPattern;
    const std::size_t uName = tstrWanted.find_last_of(L"\\/") + 1;
    const FullPath folder = FullPath(tstrWanted.substr(0, uName)).WithoutBackslash();
    std::wstring tstrName = tstrWanted.substr(uName);
    if (tstrName.empty()) return Fail(ERROR_FILE_NOT_FOUND, pdwError);
    if (folder.IsDevice()) return Fail(ERROR_PATH_NOT_FOUND, pdwError);
    if (const DWORD dwCode = Judge(folder, MAX_PATH - tstrName.size() - 1)) return Fail(dwCode, pdwError);
    const bool bPossible = tstrName.find_first_of(L"\"<>|:") == std::wstring::npos;
    if (!bPossible && At(folder).IsFolder()) return Fail(ERROR_INVALID_NAME, pdwError);
    // The system removes trailing dots and spaces from a name.
    if (tstrName.find_first_of(L"*?") == std::wstring::npos) tstrName.resize(tstrName.find_last_not_of(L" .") + 1);
    return m_files.List(folder, tstrName, visit, pdwError);
}

bool SimulatedMachine::IsSameFile(const std::wstring& tstrPath, const std::wstring& tstrOther) const
{
    const Found file = At(tstrPath);
    const Found other = At(tstrOther);
    if (!file.IsFile() || !other.IsFile()) return false;
    if (file.pState || other.pState) return file.pState == other.pState;
    return !file.tstrReal.empty() && !other.tstrReal.empty() &&
           m_pBase->IsSameFile(LongPath(file.tstrReal), LongPath(other.tstrReal));
}

Volume SimulatedMachine::VolumeOf(const std::wstring& tstrFolder) const
{
    const FullPath folder(tstrFolder);
    const std::wstring tstrText = folder.Text() + L'\\';
    std::wstring tstrMount;
    for (const std::wstring& tstrPoint : m_mountPoints) {
        if (String::StartsWithNoCase(tstrText, tstrPoint) && tstrPoint.size() > tstrMount.size()) tstrMount = tstrPoint;
    }
    if (!tstrMount.empty()) return {.tstrMountPoint = tstrMount};
    if (m_pBase) {
        // Windows answers slowly, and the files of a folder are all on one volume.
        const auto [itVolume, bNew] = m_volumes.try_emplace(tstrText);
        if (bNew) itVolume->second = m_pBase->VolumeOf(tstrFolder);
        return itVolume->second;
    }
    return {.tstrMountPoint = std::wstring(folder.Root()) + L'\\'};
}

bool SimulatedMachine::OpenContent(const std::wstring& tstrPath, Content& content, DWORD* pdwError) const
{
    const Found found = At(tstrPath);
    if (found.IsFolder()) return Fail(ERROR_ACCESS_DENIED, pdwError);
    if (!found.IsFile()) return Fail(found.dwError, pdwError);
    const bool bEdited = found.pState && !found.pState->edits.empty();
    content = {};
    if (bEdited) return true;
    content.tstrReal = found.tstrReal.empty() ? std::wstring() : LongPath(found.tstrReal);
    if (content.tstrReal.empty() && found.pState) content.optBytes = found.pState->optBytes;
    return true;
}

bool SimulatedMachine::ReadContent(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes,
                                   DWORD* pdwError) const
{
    if (tstrPath.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    Content content;
    if (!OpenContent(tstrPath, content, pdwError)) return false;
    if (!content.tstrReal.empty()) return m_pBase->ReadContent(content.tstrReal, cbMost, strBytes, pdwError);
    if (!content.optBytes) return Fail(ERROR_NOT_SUPPORTED, pdwError);
    if (content.optBytes->size() > cbMost) return Fail(ERROR_FILE_TOO_LARGE, pdwError);
    strBytes = *content.optBytes;
    return true;
}

DWORD SimulatedMachine::TryCreateFolder(const FullPath& path)
{
    if (path.IsDevice()) return ERROR_DIRECTORY;
    if (path.IsLong(kLongestFolder + 1) && !AreLongPathsOn()) return ERROR_FILENAME_EXCED_RANGE;
    const Found found = At(path);
    if (found.eKind != Found::Kind::eNone) return ERROR_ALREADY_EXISTS;
    if (found.dwError != ERROR_FILE_NOT_FOUND) return found.dwError;
    if (!m_files.Find(path.Parent()).IsFolder()) return ERROR_PATH_NOT_FOUND;
    m_files.PutFolder(path);
    return ERROR_SUCCESS;
}

bool SimulatedMachine::CreateFolder(const std::wstring& tstrPath, DWORD* pdwError)
{
    if (tstrPath.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    const FullPath path(tstrPath);
    std::vector<FullPath> missing;  // the deepest first
    if (path.IsDevice()) missing.push_back(path);
    for (FullPath folder = path; !folder.Name().empty() && !At(folder).IsFolder(); folder = folder.Parent()) {
        missing.push_back(folder);
    }
    // As in Storage::Directory::Create(): a file in the path blocks everything below it, and the first failure ends the
    // rest.
    DWORD dwError = path.IsDevice() ? ERROR_SUCCESS : WhyNotHeld(std::wstring(path.Root()) + L'\\');
    if (dwError == ERROR_SUCCESS && LeadsThroughLink(tstrPath)) dwError = Storage::Directory::kStoppedOnLink;
    for (auto itFolder = missing.rbegin(); itFolder != missing.rend() && dwError == ERROR_SUCCESS; ++itFolder) {
        if (itFolder->IsDevice() || !At(*itFolder).IsFile()) dwError = TryCreateFolder(*itFolder);
    }
    Change change{.eAction = Action::eCreateFolder, .eOutcome = missing.empty() ? Outcome::eStay : Outcome::eNew};
    change.tstrTarget = tstrPath;
    const bool bOk = At(path).IsFolder();
    if (!bOk) {
        if (dwError == ERROR_SUCCESS) dwError = ERROR_ALREADY_EXISTS;
        change.eOutcome = Outcome::eFail;
        change.tstrReason = WhyNotCreated(path, dwError);
    }
    Record(std::move(change));
    return bOk || Fail(dwError, pdwError);
}

std::wstring SimulatedMachine::WhyNotCreated(const FullPath& path, DWORD dwCode) const
{
    if (path.IsDevice()) return L"a device has that name";
    if (path.Error() != ERROR_SUCCESS || dwCode == ERROR_FILENAME_EXCED_RANGE) return DescribeRefusal(dwCode);
    FullPath folder = path;
    while (!folder.Name().empty() && At(folder).eKind == Found::Kind::eNone) folder = folder.Parent();
    if (At(folder).IsFile()) {
        return folder.Text() == path.Text() ? L"a file has that name" : L"a file has the name of a folder above it";
    }
    return At(folder).eKind == Found::Kind::eNone ? L"there is no such drive" : DescribeRefusal(dwCode);
}

DWORD SimulatedMachine::WhyNotPlaced(const FullPath& destination) const
{
    if (destination.IsDevice()) return ERROR_INVALID_NAME;
    if (const DWORD dwCode = Judge(destination)) return dwCode;
    return m_files.Find(destination.Parent()).IsFolder() ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
}

DWORD SimulatedMachine::WhyHomeNotHeld(const FullPath& destination) const
{
    return destination.IsDevice() ? ERROR_SUCCESS : WhyNotHeld(destination.Parent().Text());
}

DWORD SimulatedMachine::TryCopyOver(const FullPath& destination, const Found& source) const
{
    if (source.eKind == Found::Kind::eNone) return source.dwError;
    if (source.IsFolder()) return ERROR_ACCESS_DENIED;
    const Found old = At(destination);
    const bool bHides = (old.dwAttributes & ~source.dwAttributes & kHiding) != 0;
    if (old.IsFolder() || (old.dwAttributes & FILE_ATTRIBUTE_READONLY) || bHides) return ERROR_ACCESS_DENIED;
    return WhyNotPlaced(destination);
}

DWORD SimulatedMachine::TryCopyNew(const FullPath& destination, const Found& source) const
{
    if (source.eKind == Found::Kind::eNone) return source.dwError;
    if (source.IsFolder()) return ERROR_ACCESS_DENIED;
    if (const DWORD dwCode = WhyNotPlaced(destination)) return dwCode;
    return At(destination).eKind == Found::Kind::eNone ? DWORD{ERROR_SUCCESS} : ERROR_FILE_EXISTS;
}

void SimulatedMachine::PutCopy(const FullPath& destination, const Found& source)
{
    auto pState = source.pState ? std::make_shared<FileState>(*source.pState) : std::make_shared<FileState>();
    pState->tstrReal = source.tstrReal;
    pState->optAttributes = (source.dwAttributes & kCopied) | FILE_ATTRIBUTE_ARCHIVE;
    m_files.PutFile(destination, std::move(pState));
}

void SimulatedMachine::RemoveLeftovers(const FullPath& target)
{
    const std::wstring tstrFolder = target.Parent().Text() + L'\\';
    std::vector<std::wstring> leftovers;
    const auto gather = [&](const Storage::Directory::Entry& entry) {
        if (!entry.bFolder && Storage::File::IsLeftover(entry.tstrName))
            leftovers.push_back(tstrFolder + entry.tstrName);
    };
    static_cast<void>(ForEachEntry(tstrFolder, L"*.tmp", gather, nullptr));
    for (const std::wstring& tstrPath : leftovers) {
        m_log.Explain(L"left by a program that has ended");
        static_cast<void>(DeleteNow(tstrPath, nullptr));
    }
}

bool SimulatedMachine::CopyNow(const std::wstring& tstrDestination, const std::wstring& tstrSource, CopyMode eMode,
                               DWORD* pdwError)
{
    if (tstrDestination.empty() || tstrSource.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    const FullPath destination(tstrDestination);
    const FullPath source(tstrSource);
    const Found found = At(source);
    const bool bOver = eMode == CopyMode::eOverwrite;
    DWORD dwCode = bOver && !found.IsFile() ? TryCopyOver(destination, found) : WhyHomeNotHeld(destination);
    if (dwCode == ERROR_SUCCESS) dwCode = bOver ? TryCopyOver(destination, found) : TryCopyNew(destination, found);
    Change change{.eAction = Action::eCopy, .eOutcome = At(destination).IsFile() ? Outcome::eReplace : Outcome::eNew};
    change.tstrTarget = tstrDestination;
    change.tstrSource = OriginOf(tstrSource);
    if (dwCode == ERROR_SUCCESS && bOver) RemoveLeftovers(destination);
    if (dwCode == ERROR_SUCCESS) PutCopy(destination, found);
    if (dwCode != ERROR_SUCCESS) change.tstrReason = WhyNotCopied(tstrDestination, tstrSource, dwCode);
    RecordCopy(std::move(change), destination, dwCode, !bOver && IsOtherDrive(destination, source));
    return Result(dwCode, pdwError);
}

std::wstring SimulatedMachine::OriginOf(const std::wstring& tstrPath) const
{
    const auto itMade = m_made.find(FullPath(tstrPath).Text());
    if (itMade == m_made.end() || m_log.At(itMade->second).eAction != Action::eCopy) return tstrPath;
    return m_log.At(itMade->second).tstrSource;
}

void SimulatedMachine::RecordCopy(Change change, const FullPath& destination, DWORD dwCode, bool bStaging)
{
    if (dwCode == ERROR_SUCCESS) {
        if (m_optFailedCopy && m_optFailedCopy->tstrSource == change.tstrSource) m_optFailedCopy.reset();
        const std::size_t uChange = Record(std::move(change));
        const auto [itMade, bNew] = m_made.try_emplace(destination.Text(), uChange);
        if (bNew) return;
        // Created twice: keep one change with the state before the run.
        const Change& before = m_log.At(itMade->second);
        Change& now = m_log.At(uChange);
        if (before.eAction == now.eAction && before.tstrSource == now.tstrSource) {
            now.eOutcome = before.eOutcome;
            m_log.Erase(itMade->second);
        }
        itMade->second = uChange;
        return;
    }
    const bool bExists = dwCode == ERROR_FILE_EXISTS || dwCode == ERROR_ALREADY_EXISTS;
    change.eOutcome = Outcome::eFail;
    if (!bStaging) {
        // An existing file is expected here: the copy was only for a missing one.
        if (!bExists) Record(std::move(change));
        return;
    }
    if (m_optFailedCopy && m_optFailedCopy->tstrSource == change.tstrSource) return;
    SettleFailedCopy();
    change.eAction = Action::eStage;
    change.bAtRestart = true;
    if (bExists) change.tstrReason = L"all names for the copy beside it are in use";
    // The first name tried is the destination's followed by a digit.
    if (change.tstrTarget.ends_with(L'0')) change.tstrTarget.pop_back();
    m_optFailedCopy = std::move(change);
}

std::wstring SimulatedMachine::WhyNotCopied(const std::wstring& tstrDestination, const std::wstring& tstrSource,
                                            DWORD dwCode) const
{
    const FullPath destination(tstrDestination);
    const FullPath source(tstrSource);
    if ((destination.IsLong(MAX_PATH) || source.IsLong(MAX_PATH)) && !AreLongPathsOn()) return kTooLongPath;
    if (!At(source).IsFile()) return L"there is no such file to copy";
    const Found old = At(destination);
    if (old.IsFolder()) return L"a folder has that name";
    if (old.IsFile() && (old.dwAttributes & FILE_ATTRIBUTE_READONLY)) return L"the file there is read-only";
    if (old.IsFile() && dwCode == ERROR_ACCESS_DENIED) return L"the file there is hidden, or the system's";
    return DescribeRefusal(dwCode);
}

bool SimulatedMachine::BackUp(const std::wstring& tstrCopy, const std::wstring& tstrSource, DWORD* pdwError)
{
    if (tstrCopy.empty() || tstrSource.empty()) return Fail(ERROR_BAD_ARGUMENTS, pdwError);
    const FullPath copy(tstrCopy);
    const Found source = At(tstrSource);
    DWORD dwCode = ERROR_ACCESS_DENIED;
    if (!source.IsFolder() && !At(copy).IsFolder()) dwCode = WhyHomeNotHeld(copy);
    if (dwCode == ERROR_SUCCESS) dwCode = source.IsFile() ? WhyNotPlaced(copy) : source.dwError;
    Change change{.eAction = Action::eKeep, .eOutcome = At(copy).IsFile() ? Outcome::eReplace : Outcome::eNew};
    change.tstrTarget = tstrCopy;
    change.tstrSource = tstrSource;
    if (dwCode == ERROR_SUCCESS) RemoveLeftovers(copy);
    if (dwCode == ERROR_SUCCESS) PutCopy(copy, source);
    if (dwCode != ERROR_SUCCESS) change.tstrReason = WhyNotCopied(tstrCopy, tstrSource, dwCode);
    RecordCopy(std::move(change), copy, dwCode, false);
    return Result(dwCode, pdwError);
}

bool SimulatedMachine::LinkTo(const std::wstring& tstrName, const std::wstring& tstrFile, DWORD* pdwError)
{
    const FullPath name(tstrName);
    const FullPath file(tstrFile);
    const Found found = At(file);
    DWORD dwCode = found.eKind == Found::Kind::eNone ? found.dwError : WhyNotPlaced(name);
    if (dwCode == ERROR_SUCCESS && found.IsFolder()) dwCode = ERROR_ACCESS_DENIED;
    if (dwCode == ERROR_SUCCESS && At(name).eKind != Found::Kind::eNone) dwCode = ERROR_ALREADY_EXISTS;
    if (dwCode == ERROR_SUCCESS && IsOtherVolume(name, file)) dwCode = ERROR_NOT_SAME_DEVICE;
    if (dwCode != ERROR_SUCCESS) return Fail(dwCode, pdwError);
    m_files.PutFile(name, m_files.Own(file));
    Change change{.eAction = Action::eKeep, .eOutcome = Outcome::eNew};
    change.tstrTarget = tstrName;
    change.tstrSource = tstrFile;
    RecordCopy(std::move(change), name, dwCode, false);
    return true;
}

bool SimulatedMachine::MoveNow(const std::wstring& tstrSource, const std::wstring& tstrDestination, DWORD* pdwError)
{
    const FullPath source(tstrSource);
    const FullPath destination(tstrDestination);
    const Found found = At(source);
    if (!found.IsFile()) return Fail(found.IsFolder() ? DWORD{ERROR_NOT_SUPPORTED} : found.dwError, pdwError);
    if (String::EqualsNoCase(source.Text(), destination.Text())) return true;
    DWORD dwCode = WhyNotPlaced(destination);
    if (dwCode == ERROR_SUCCESS && At(destination).eKind != Found::Kind::eNone) dwCode = ERROR_ALREADY_EXISTS;
    if (dwCode == ERROR_SUCCESS && IsOtherVolume(source, destination)) dwCode = ERROR_NOT_SAME_DEVICE;
    if (dwCode != ERROR_SUCCESS) return Fail(dwCode, pdwError);
    const std::shared_ptr<FileState> pState = m_files.Own(source);
    m_files.Remove(source);
    m_files.PutFile(destination, pState);

    const auto itMade = m_made.find(source.Text());
    if (itMade != m_made.end()) {
        // The run's own working copy: its changes now belong to the destination.
        m_log.ForEach([&](Change& change) {
            if (String::EqualsNoCase(change.tstrTarget, tstrSource)) change.tstrTarget = tstrDestination;
        });
        m_made[destination.Text()] = itMade->second;
        m_made.erase(itMade);
        return true;
    }
    AddDeletion(tstrSource, false);
    Change change{.eAction = Action::eCopy, .eOutcome = Outcome::eNew};
    change.tstrTarget = tstrDestination;
    change.tstrSource = tstrSource;
    RecordCopy(std::move(change), destination, ERROR_SUCCESS, false);
    return true;
}

bool SimulatedMachine::MakeWritable(const std::wstring& tstrPath, DWORD* pdwError)
{
    constexpr DWORD kRefused = FILE_ATTRIBUTE_READONLY | kHiding;
    const FullPath path(tstrPath);
    const Found found = At(path);
    if (found.IsFolder()) return Fail(ERROR_DIRECTORY, pdwError);
    if (!found.IsFile()) {
        const bool bMissing = found.dwError == ERROR_FILE_NOT_FOUND || found.dwError == ERROR_PATH_NOT_FOUND;
        return bMissing || Fail(found.dwError, pdwError);
    }
    if (!path.IsDevice() && (found.dwAttributes & kRefused)) {
        const DWORD dwKept = found.dwAttributes & ~kRefused;
        m_files.Own(path)->optAttributes = dwKept ? dwKept : DWORD{FILE_ATTRIBUTE_NORMAL};
    }
    return true;
}

bool SimulatedMachine::ReplaceContent(const std::wstring& tstrPath, std::string_view strBytes, DWORD* pdwError)
{
    constexpr DWORD kKept = kHiding | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_ENCRYPTED;
    const FullPath path(tstrPath);
    const Found found = At(path);
    if (found.eKind == Found::Kind::eNone) return Fail(found.dwError, pdwError);
    if (found.IsFolder() || (found.dwAttributes & FILE_ATTRIBUTE_READONLY)) return Fail(ERROR_ACCESS_DENIED, pdwError);
    RemoveLeftovers(path);
    AddFile(tstrPath, strBytes, (found.dwAttributes & kKept) | FILE_ATTRIBUTE_ARCHIVE);
    return true;
}

}  // namespace Check
