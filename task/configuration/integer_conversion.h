#pragma once
// Which conversions of an integer variable the library keeps exact. Its integer rules cut values to
// the width of the raw value and limit them as unsigned numbers, so a value that leaves a range of
// theirs comes out as another one: docs/formats.md has the ranges and examples.

#include "table_file.h"

#include <string>

namespace task {

// Empty when every raw value of `size` bytes becomes raw * factor + offset, limited and cut to a
// whole number. Otherwise what can leave which range. Sizes that are not decoded give an empty
// text.
std::string inexact_integer(int size, const ConversionLine& conversion);

} // namespace task
