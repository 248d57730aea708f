#pragma once
// Names that somebody may have meant.

#include "block_table.h"

#include <string>
#include <string_view>
#include <vector>

namespace a2l {

// Up to three, the nearest first: by the number of characters to insert, remove or replace, upper
// and lower case alike. None that needs more than a third of them.
std::vector<std::string> near_names(const std::vector<Block>& blocks, std::string_view name);

} // namespace a2l
