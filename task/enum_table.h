#pragma once
// Tables with a row for each enumerator, matched when they are compiled.

#include <cstddef>

namespace task {

// Whether row i is that of enumerator i, from 0 to `last`.
template <class Row, std::size_t rows, class Enum>
consteval bool has_row_for_each(const Row (&table)[rows], Enum Row::*key, Enum last) {
    for (std::size_t i = 0; i < rows; ++i)
        if (static_cast<std::size_t>(table[i].*key) != i)
            return false;
    return rows == static_cast<std::size_t>(last) + 1;
}

} // namespace task
