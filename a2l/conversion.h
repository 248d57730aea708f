#pragma once
// A COMPU_METHOD, as far as it is linear.

#include "block_table.h"
#include "source_files.h"

#include <string>

namespace a2l {

struct Conversion {
    double factor = 1; // physical = factor * raw + offset
    double offset = 0;
    std::string unit;
};

// A table gives the raw number. Throws io::FileError for one that is not linear, in which `user`,
// the MEASUREMENT, is named as well.
Conversion read_conversion(const SourceFiles& files, const Block& block, const std::string& user);

} // namespace a2l
