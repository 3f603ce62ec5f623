// The moves and deletions that Windows carries out at the next restart.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace Check {

/// One of them, with full paths; without a destination the source is deleted.
struct PendingMove {
    std::wstring tstrSource;
    std::wstring tstrDestination;
};

/// The machine's list, in its order. RegQueryValueExW.
[[nodiscard]] std::vector<PendingMove> ReadPendingMoves();

/// Splits the raw text of the list: pairs of texts that end in a zero each, of which the second may be empty.
[[nodiscard]] std::vector<PendingMove> ParsePendingMoves(std::wstring_view tstrRaw);

/// The same list, to be asked by path; case does not matter.
class PendingPlaces {
public:
    explicit PendingPlaces(const std::vector<PendingMove>& moves);

    /// Whether a move to that place waits.
    [[nodiscard]] bool IsDestination(const std::wstring& tstrPath) const;
    /// Whether that file or folder waits to be deleted.
    [[nodiscard]] bool IsDeleted(const std::wstring& tstrPath) const;

private:
    std::unordered_set<std::wstring> m_destinations;
    std::unordered_set<std::wstring> m_deleted;
};

}  // namespace Check
