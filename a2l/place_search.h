#pragma once
// The way back from the slave's memory to names.

#include "a2l_file.h"
#include "block_index.h"
#include "source_files.h"

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace a2l {

// Reads every MEASUREMENT once. `granularity`: bytes of an address.
std::map<MemoryPlace, std::vector<std::string>> find_names(const SourceFiles& files,
                                                           const BlockIndex& index,
                                                           std::size_t granularity,
                                                           const std::set<MemoryPlace>& places);

} // namespace a2l
