#pragma once
// A MEASUREMENT as it stands in the file, not yet understood.

#include "block_table.h"
#include "source_files.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace a2l {

// A token without text was not there.
struct Measurement {
    Token name;
    Token type;
    Token conversion;
    Token lower;
    Token upper;
    Token address;
    Token addressExtension;
    Token addressType;
    Token byteOrder;
    Token bitMask;
    Token unit;
    Token displayIdentifier;
    Token layout;
    std::vector<std::uint32_t> dimensions; // without ones at the end
    bool isVirtual = false;
    std::optional<std::uint16_t> event; // fixed or default
};

Measurement read_measurement(const SourceFiles& files, const Block& block);

// The word after BYTE_ORDER in MOD_COMMON.
Token read_default_byte_order(const SourceFiles& files, const Block& modCommon);

} // namespace a2l
