#pragma once
// Numbers of any size from 1 to 8 bytes, in either byte order.

#include "xcp/packet_fields.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace simulated_slave {

// Of a number's bytes in memory, how far the i-th one is shifted.
inline std::size_t shift_of(std::size_t i, std::size_t size, xcp::ByteOrder order) {
    return 8 * (order == xcp::ByteOrder::little ? i : size - 1 - i);
}

inline void append_number(std::vector<std::uint8_t>& bytes, std::uint64_t number, std::size_t size,
                          xcp::ByteOrder order) {
    for (std::size_t i = 0; i < size; ++i)
        bytes.push_back(static_cast<std::uint8_t>(number >> shift_of(i, size, order)));
}

inline std::uint64_t number_of(std::span<const std::uint8_t> bytes, xcp::ByteOrder order) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        number |= std::uint64_t{bytes[i]} << shift_of(i, bytes.size(), order);
    return number;
}

} // namespace simulated_slave
