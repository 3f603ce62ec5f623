// Positions in the text of a file.
#pragma once

#include <compare>

namespace Check {

/// A line and a column, counted from 1; line 0 means the whole file.
struct TextPosition {
    unsigned uLine = 0;
    unsigned uColumn = 0;  ///< in UTF-16 characters
    auto operator<=>(const TextPosition&) const = default;
};

}  // namespace Check
