// Checks tables that are indexed by an enumerator.
#pragma once

#include <cstddef>

namespace Check {

/// Whether each row of a table is at the index of its own enumerator, `pKey`.
template <class Row, std::size_t cRows, class Key>
consteval bool IsInOrder(const Row (&rows)[cRows], Key Row::*pKey)
{
    for (std::size_t u = 0; u < cRows; ++u) {
        if (static_cast<std::size_t>(rows[u].*pKey) != u) return false;
    }
    return true;
}

}  // namespace Check
