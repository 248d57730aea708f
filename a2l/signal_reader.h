#pragma once
// A MEASUREMENT, or one element of it, as a Signal.

#include "a2l_file.h"
#include "block_index.h"
#include "source_files.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace a2l {

// What the module says for all its MEASUREMENTs.
struct ModuleDefaults {
    Token byteOrder; // without text: least significant byte first
    std::size_t addressGranularity = 1;
};

// Empty for an unknown word.
std::optional<DataType> type_named(std::string_view word);

// Without its name. `indices` is empty for a MEASUREMENT as a whole. Throws io::FileError for what
// cannot be measured.
Signal read_signal(const SourceFiles& files, const BlockIndex& index,
                   const ModuleDefaults& defaults, const Block& block,
                   const std::vector<std::uint32_t>& indices);

} // namespace a2l
