// Moves and deletions when a machine in memory starts.
#include "check/simulate/SimulatedMachine.h"

#include "common/KzComn_Result.h"

#include <utility>

using namespace KzCommon;
using Storage::Fail;

namespace Check {

namespace {

constexpr wchar_t kNotEmpty[] = L"the folder is not empty by then";

}  // namespace

bool SimulatedMachine::MoveAtRestart(const std::wstring& tstrSource, const std::wstring& tstrDestination,
                                     DWORD* pdwError)
{
    const FullPath source(tstrSource);
    if (tstrDestination.empty()) {
        if (source.Text().empty()) return Fail(ERROR_PATH_NOT_FOUND, pdwError);
        Change change{.eAction = Action::eDelete, .eOutcome = Outcome::eRemove, .bAtRestart = true};
        change.tstrTarget = tstrSource;
        static_cast<void>(Schedule(source, std::nullopt, std::move(change)));
        return true;
    }
    const FullPath destination(tstrDestination);
    // Windows only stores the two paths; the restart looks at the files.
    const bool bLong = (source.IsLong(MAX_PATH) || destination.IsLong(MAX_PATH)) && !AreLongPathsOn();
    const bool bNoted = !bLong && !source.Text().empty();
    Change change{.eAction = Action::eMove, .eOutcome = Outcome::eNew, .bAtRestart = true};
    change.tstrTarget = tstrDestination;
    change.tstrSource = tstrSource;
    const Found old = At(destination);
    if (old.IsFile()) change.eOutcome = Outcome::eReplace;
    if (!bNoted) {
        change.eOutcome = Outcome::eFail;
        change.bAtRestart = false;
        change.tstrReason = L"longer than 259 characters, there or in the download folder";
    }
    if (bNoted && old.IsFile() && (old.dwAttributes & FILE_ATTRIBUTE_READONLY)) {
        const DWORD dwNew = old.dwAttributes & ~DWORD{FILE_ATTRIBUTE_READONLY};
        m_files.Own(destination)->optAttributes = dwNew ? dwNew : DWORD{FILE_ATTRIBUTE_NORMAL};
    }
    const auto itMade = m_made.find(source.Text());
    const bool bBeside = String::StartsWithNoCase(source.Text(), destination.Text());
    if (bBeside && itMade != m_made.end() && m_log.At(itMade->second).eAction == Action::eCopy) {
        // A copy staged beside its destination: one change for both.
        change.eAction = Action::eStage;
        change.tstrStaged = tstrSource;
        change.tstrSource = m_log.At(itMade->second).tstrSource;
        m_log.At(itMade->second) = std::move(change);
        if (bNoted) m_moves.push_back({source, destination, itMade->second});
    } else if (bNoted) {
        static_cast<void>(Schedule(source, destination, std::move(change)));
    } else {
        Record(std::move(change));
    }
    return bNoted || Fail(ERROR_PATH_NOT_FOUND, pdwError);
}

std::vector<SimulatedMachine::PendingMove> SimulatedMachine::PendingMoves() const
{
    std::vector<PendingMove> moves;
    moves.reserve(m_moves.size());
    for (const Move& move : m_moves) {
        moves.push_back({move.source.Text(), move.optDestination ? move.optDestination->Text() : std::wstring()});
    }
    return moves;
}

bool SimulatedMachine::IsOtherVolume(const FullPath& left, const FullPath& right) const
{
    if (!String::EqualsNoCase(left.Root(), right.Root())) return true;
    const Volume leftVolume = VolumeOf(left.Parent().Text() + L'\\');
    const Volume rightVolume = VolumeOf(right.Parent().Text() + L'\\');
    return leftVolume.dwError == ERROR_SUCCESS && rightVolume.dwError == ERROR_SUCCESS &&
           !String::EqualsNoCase(leftVolume.tstrMountPoint, rightVolume.tstrMountPoint);
}

std::wstring SimulatedMachine::CarryOut(const Move& move)
{
    const Found source = m_files.Find(move.source);
    if (!move.optDestination) {
        const bool bKept = source.IsFolder() && !m_files.IsLink(move.source) && !m_files.IsEmpty(move.source);
        if (bKept) return kNotEmpty;
        if (source.eKind != Found::Kind::eNone) m_files.Remove(move.source);
        return {};
    }
    const FullPath& destination = *move.optDestination;
    if (destination.Error() != ERROR_SUCCESS) return DescribeRefusal(destination.Error());
    if (!source.IsFile()) return L"the file to move is gone by then";
    if (!m_files.Find(destination.Parent()).IsFolder()) return DescribeRefusal(ERROR_PATH_NOT_FOUND);
    const Found old = m_files.Find(destination);
    if (old.IsFolder()) return L"a folder has that name";
    if (IsOtherVolume(move.source, destination)) {
        return L"on another volume: Windows cannot move files there at the restart";
    }
    if (old.IsFile() && (old.dwAttributes & FILE_ATTRIBUTE_READONLY)) return L"the file there is read-only then";
    const std::shared_ptr<FileState> pState = m_files.Own(move.source);
    m_files.Remove(move.source);
    m_files.PutFile(destination, pState);
    return {};
}

void SimulatedMachine::Restart()
{
    SettleFailedCopy();
    PathTexts arrivals;  // the source of each arrived file, by destination
    for (const Move& move : std::exchange(m_moves, {})) {
        Change& change = m_log.At(move.uChange);
        const bool bReplaces = move.optDestination && m_files.Find(*move.optDestination).IsFile();
        const std::wstring tstrObstacle = CarryOut(move);
        if (!tstrObstacle.empty()) {
            change.eOutcome = Outcome::eFail;
            change.tstrReason = tstrObstacle;
        } else if (move.optDestination) {
            if (bReplaces) change.eOutcome = Outcome::eReplace;
            const auto [itFirst, bFirst] = arrivals.try_emplace(move.optDestination->Text(), change.tstrSource);
            if (!bFirst) change.tstrReason = L"replaces " + std::exchange(itFirst->second, change.tstrSource);
        }
    }
}

}  // namespace Check
