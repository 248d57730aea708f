#pragma once
// A second decoder, written straight from the arithmetic and without the library's tables: the
// judge of the real one over random input. It knows contiguous ODTs only.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace decoder_reference {

struct Measurement {
    std::string name;
    bool integer;
    int size;
    int byteOrder;
    double factor, offset, lower, upper;
};

struct Value {
    std::string name;
    double value;
    bool operator==(const Value&) const = default;
};

struct Result {
    std::optional<std::uint32_t> timestamp;
    std::vector<Value> values; // in the order of the entries
};

Result decode(const std::vector<Measurement>& odt, bool timestamped,
              const std::vector<std::uint8_t>& packet);

} // namespace decoder_reference
