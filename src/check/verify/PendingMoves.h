// The moves and deletions that Windows carries out at the next restart.
#pragma once

#include "common/KzComn_Machine.h"
#include "common/KzComn_String.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// One of them, with full paths; without a destination the source is deleted.
struct PendingMove {
    std::wstring tstrSource;
    std::wstring tstrDestination;
    bool bReplace = false;  ///< a file in the destination's place is replaced; without it the move then fails
};

/// The machine's list, in its order.
[[nodiscard]] std::vector<PendingMove> ReadPendingMoves(const KzCommon::Machine& machine);

/// Splits the raw text of the list: pairs of texts that end in a zero each, of which the second may be empty. Other
/// programs write to it as well, in every form that Windows takes.
[[nodiscard]] std::vector<PendingMove> ParsePendingMoves(std::wstring_view tstrRaw);

/// What the restart makes of one place.
struct PendingFate {
    enum class Kind {
        eStays,  ///< what is there now
        eGone,   ///< deleted, or moved away
        eTaken   ///< another file takes the place
    };
    Kind eKind = Kind::eStays;
    std::wstring tstrFrom;  ///< of eTaken: where that file is now
    bool bMovedTo = false;  ///< a move there is carried out, whatever comes after it
    bool bLost = false;     ///< a move there fails because its source is gone
};

/// What the list comes to when Windows has carried it out, entry by entry: later ones act on what earlier ones leave.
/// An entry whose source is missing does nothing, nor does a move to a missing folder, or onto a file that it is not
/// to replace, nor the deletion of a folder that is not empty by then. The machine is looked at by the
/// constructor and by each question.
class PendingPlaces {
public:
    /// `machine` must outlive this.
    PendingPlaces(const KzCommon::Machine& machine, const std::vector<PendingMove>& moves);

    /// What becomes of a full path; case and short names do not matter.
    [[nodiscard]] PendingFate After(const std::wstring& tstrPath) const;
    /// Whether a file or folder is gone then.
    [[nodiscard]] bool IsGone(const std::wstring& tstrPath) const;

private:
    /// Where a file or folder comes from; nothing for one that is gone.
    using Origin = std::optional<std::wstring>;

    void CarryOut(const PendingMove& move);
    [[nodiscard]] Origin OriginOf(const std::wstring& tstrPath) const;
    [[nodiscard]] bool IsThere(const std::wstring& tstrPath) const;
    [[nodiscard]] bool IsRealFolder(const std::wstring& tstrPath) const;
    [[nodiscard]] bool IsEmptyFolder(const std::wstring& tstrPath, const std::wstring& tstrNow) const;

    const KzCommon::Machine& m_machine;
    KzCommon::String::NoCaseMap<Origin> m_places;  // those that the list changes
    KzCommon::String::NoCaseSet m_movedTo;
    KzCommon::String::NoCaseSet m_lost;
};

}  // namespace Check
