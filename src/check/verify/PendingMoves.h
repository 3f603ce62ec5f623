// The moves and deletions that Windows carries out at the next restart.
#pragma once

#include "common/KzComn_Machine.h"
#include "common/KzComn_String.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Check {

/// One move with full paths; without a destination the source is deleted.
struct PendingMove {
    std::wstring tstrSource;
    std::wstring tstrDestination;
    bool bReplace = false;  ///< replaces an existing file; otherwise the move then fails
};

/// A path with long names and without trailing backslash; keeps its case. GetLongPathNameW.
[[nodiscard]] std::wstring PlainName(std::wstring tstrPath);

/// The machine's list, in order.
[[nodiscard]] std::vector<PendingMove> ReadPendingMoves(const KzCommon::Machine& machine);

/// Splits the raw text of the list: pairs of zero-terminated texts, of which the second may be empty. Other programs
/// write to it as well, in every form that Windows accepts.
[[nodiscard]] std::vector<PendingMove> ParsePendingMoves(std::wstring_view tstrRaw);

/// The effect of the restart on one place.
struct PendingFate {
    enum class Kind {
        eStays,  ///< unchanged
        eGone,   ///< deleted, or moved away
        eTaken   ///< replaced with another file
    };
    Kind eKind = Kind::eStays;
    std::wstring tstrFrom;    ///< for eTaken: the current path of that file
    bool bMovedTo = false;    ///< a move to this place succeeds, even if a later entry changes it again
    bool bLost = false;       ///< a move to this place fails because its source is missing
    bool bProtected = false;  ///< a move to this place fails because the file there is read-only
};

/// The result of the whole list, entry by entry; later entries work on the result of earlier ones. An entry has no
/// effect if its source is missing, if the destination folder is missing, if the destination exists and may not be
/// replaced or is read-only, or if a folder to delete is not empty by then. The constructor and each query access the
/// machine.
class PendingPlaces {
public:
    /// `machine` must outlive this object.
    PendingPlaces(const KzCommon::Machine& machine, const std::vector<PendingMove>& moves);

    /// The effect on a full path, compared without regard to case and short names.
    [[nodiscard]] PendingFate After(const std::wstring& tstrPath) const;
    /// Whether a file or folder does not exist after the restart.
    [[nodiscard]] bool IsGone(const std::wstring& tstrPath) const;

private:
    /// The original path of a file or folder; empty if it is deleted.
    using Origin = std::optional<std::wstring>;

    void CarryOut(const PendingMove& move);
    [[nodiscard]] Origin OriginOf(const std::wstring& tstrPath) const;
    [[nodiscard]] bool IsThere(const std::wstring& tstrPath) const;
    [[nodiscard]] bool IsReadOnlyFile(const std::wstring& tstrPath) const;
    [[nodiscard]] bool IsRealFolder(const std::wstring& tstrPath) const;
    [[nodiscard]] bool IsEmptyFolder(const std::wstring& tstrPath, const std::wstring& tstrNow) const;

    const KzCommon::Machine& m_machine;
    KzCommon::String::NoCaseMap<Origin> m_places;  // the places that the list changes
    KzCommon::String::NoCaseSet m_movedTo;
    KzCommon::String::NoCaseSet m_lost;
    KzCommon::String::NoCaseSet m_protected;
};

}  // namespace Check
