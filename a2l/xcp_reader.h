#pragma once
// What the IF_DATA blocks of a module say about XCP.

#include "a2l_file.h"
#include "block_table.h"
#include "source_files.h"
#include "warnings.h"

#include <vector>

namespace a2l {

// Of several IF_DATA XCP or XCPplus the first with UDP counts, or else the first.
Xcp read_xcp(const SourceFiles& files, const std::vector<Block>& ifData, Warnings& warnings);

} // namespace a2l
