// "Did you mean ...?"
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace Check {

/// The one of `words` that `tstrWord` is most likely a slip of: the same but for case, or a third of its characters
/// added, left out, replaced or swapped at most. Empty when none comes near.
[[nodiscard]] std::wstring NearestOf(std::wstring_view tstrWord, std::span<const std::wstring> words);

}  // namespace Check
