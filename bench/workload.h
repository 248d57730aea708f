#pragma once
// The tables and packets that the benchmarks work on, and the same work written by hand: the
// floors.

#include "api_xcp_daq.h"

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace bench {

using Frame = std::vector<std::uint8_t>;
using EntryMap = std::map<std::pair<std::int32_t, std::int32_t>, odt_table_entry*>;

// Empties the library's measurement table.
void clear_table();

// Adds one ODT: of `entries` values in turn of every size, kind and byte order; or of 4-byte real
// values that fill a packet of `bytes` bytes.
void add_mixed_odt(int daq, int odt, int entries);
void add_plain_odt(int daq, int odt, std::size_t bytes);

// A packet for an ODT of the table, without timestamp.
Frame packet_for(int daq, int odt);

// A datagram full of copies of the packet, up to 1400 bytes, and their number.
struct Datagram {
    Frame payload;
    std::size_t packets;
};
Datagram datagram_of(const Frame& packet);

// The last value of the ODT: where a benchmark sees that a packet is through.
std::uint64_t updates_of_last(int daq, int odt);

// One ODT decoded with the library's arithmetic and host calls and nothing else: its entries walked
// by iterator in a map, or in an array that was made before.
void decode_map_by_hand(const EntryMap& entries, const Frame& frame);
void decode_array_by_hand(const std::vector<const odt_table_entry*>& entries, const Frame& frame);

} // namespace bench
