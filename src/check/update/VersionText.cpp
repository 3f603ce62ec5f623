#include "check/update/VersionText.h"

#include <algorithm>
#include <string>
#include <vector>

namespace Check {

namespace {

/// The numbers of a version; empty for any other text.
std::vector<unsigned long> NumbersOf(std::wstring_view tstrVersion)
{
    constexpr std::size_t kMostDigits = 9;
    std::vector<unsigned long> numbers;
    while (true) {
        const std::size_t uEnd = std::min(tstrVersion.find(L'.'), tstrVersion.size());
        const std::wstring tstrNumber(tstrVersion.substr(0, uEnd));
        if (tstrNumber.empty() || tstrNumber.size() > kMostDigits ||
            tstrNumber.find_first_not_of(L"0123456789") != std::wstring::npos) {
            return {};
        }
        numbers.push_back(std::stoul(tstrNumber));
        if (uEnd == tstrVersion.size()) break;
        tstrVersion.remove_prefix(uEnd + 1);
    }
    return numbers.size() > 1 ? numbers : std::vector<unsigned long>();
}

}  // namespace

bool IsVersion(std::wstring_view tstrText)
{
    return !NumbersOf(tstrText).empty();
}

bool IsOlderVersion(std::wstring_view tstrVersion, std::wstring_view tstrInstalled)
{
    const std::vector<unsigned long> numbers = NumbersOf(tstrVersion);
    const std::vector<unsigned long> installed = NumbersOf(tstrInstalled);
    return !numbers.empty() && !installed.empty() && numbers < installed;
}

}  // namespace Check
