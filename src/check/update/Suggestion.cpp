#include "check/update/Suggestion.h"

#include "common/KzComn_String.h"

#include <algorithm>
#include <vector>

using namespace KzCommon;

namespace Check {

namespace {

constexpr std::size_t kMaxCharacters = 64;  // names; longer texts are too expensive

/// The number of characters to add, remove, replace or swap with their neighbour.
std::size_t DistanceOf(std::wstring_view tstrLeft, std::wstring_view tstrRight)
{
    const std::size_t cRight = tstrRight.size();
    std::vector<std::size_t> older(cRight + 1);
    std::vector<std::size_t> previous(cRight + 1);
    std::vector<std::size_t> current(cRight + 1);
    for (std::size_t uRight = 0; uRight <= cRight; ++uRight) previous[uRight] = uRight;
    for (std::size_t uLeft = 1; uLeft <= tstrLeft.size(); ++uLeft) {
        current[0] = uLeft;
        for (std::size_t uRight = 1; uRight <= cRight; ++uRight) {
            const std::size_t uOther = tstrLeft[uLeft - 1] == tstrRight[uRight - 1] ? 0 : 1;
            current[uRight] = std::min({previous[uRight] + 1, current[uRight - 1] + 1, previous[uRight - 1] + uOther});
            if (uLeft > 1 && uRight > 1 && tstrLeft[uLeft - 1] == tstrRight[uRight - 2] &&
                tstrLeft[uLeft - 2] == tstrRight[uRight - 1]) {
                current[uRight] = std::min(current[uRight], older[uRight - 2] + 1);
            }
        }
        older.swap(previous);
        previous.swap(current);
    }
    return previous[cRight];
}

}  // namespace

std::wstring NearestOf(std::wstring_view tstrWord, std::span<const std::wstring> words)
{
    if (tstrWord.empty() || tstrWord.size() > kMaxCharacters) return {};
    const std::wstring tstrLower = String::LowerCase(std::wstring(tstrWord));
    std::wstring tstrNearest;
    std::size_t uLeast = std::max<std::size_t>(1, tstrWord.size() / 3) + 1;
    for (const std::wstring& tstrCandidate : words) {
        if (tstrCandidate.size() > kMaxCharacters) continue;
        const std::size_t uDistance = DistanceOf(tstrLower, String::LowerCase(std::wstring(tstrCandidate)));
        if (uDistance >= uLeast) continue;
        uLeast = uDistance;
        tstrNearest = tstrCandidate;
    }
    return tstrNearest;
}

}  // namespace Check
