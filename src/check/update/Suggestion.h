// "Did you mean ...?"
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace Check {

/// The word that `tstrWord` most likely means: equal except for case, or with at most a third of its characters added,
/// removed, replaced or swapped. Empty when no word is similar enough.
[[nodiscard]] std::wstring NearestOf(std::wstring_view tstrWord, std::span<const std::wstring> words);

}  // namespace Check
