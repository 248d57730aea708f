#pragma once
// Where the blocks of a module stand that are of interest. They are read when they are asked for.

#include "block_table.h"
#include "source_files.h"
#include "warnings.h"

#include <optional>
#include <string>
#include <vector>

namespace a2l {

struct BlockIndex {
    BlockTable measurements;
    BlockTable conversions;
    std::vector<Block> ifData; // of the module itself
    std::optional<Block> modCommon;
};

// Walks once through the file and those that it includes, which `files` keeps. Of several modules
// the first is taken. Throws io::FileError when there is none, when a file includes itself, or
// when blocks or files are nested without reason.
BlockIndex read_index(const std::string& path, SourceFiles& files, Warnings& warnings);

} // namespace a2l
