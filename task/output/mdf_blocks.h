#pragma once
// The blocks of a measurement file, as ASAM MDF 4.1 lays them out: those that a recording has, each
// with those of its fields that a recording fills. All others are zero.
//
// A block is a header (id, length, number of links), its links, and its data. Each begins at a
// multiple of 8 bytes.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace task::mdf {

using Bytes = std::vector<std::uint8_t>;
using Place = std::uint64_t; // of a block: bytes from the file's beginning; 0: there is none

constexpr std::size_t alignment = 8;          // bytes
constexpr std::size_t block_header_size = 24; // bytes

// Where a block's link lies, from the block's beginning.
constexpr Place link_at(std::size_t number) {
    return block_header_size + number * sizeof(Place);
}

// ID: the file's first 64 bytes. One that is not finalised was still being written: the records of
// the last blocks may not be counted yet.
Bytes identification(bool finalised);

struct WallClock {
    std::uint64_t nanoseconds; // since 1970, UTC
    std::int16_t zone;         // minutes east of UTC, without daylight saving
    std::int16_t daylight;     // minutes of daylight saving
};

// HD
struct Header {
    static constexpr Place place = 64;
    static constexpr Place firstEventAt = place + link_at(4);
    Place firstDataGroup;
    Place fileHistory;
    WallClock start; // the times of all groups count from there
};
Bytes block(const Header& header);

// FH: who wrote the file. The comment is XML.
struct FileHistory {
    Place comment;
    WallClock time;
};
Bytes block(const FileHistory& history);

// DG: one channel group's records, without record ids.
struct DataGroup {
    static constexpr Place dataAt = link_at(2);
    Place next;
    Place channelGroup;
};
Bytes block(const DataGroup& group);

// CG
struct ChannelGroup {
    static constexpr Place recordCountAt = link_at(6) + 8;
    Place firstChannel;
    Place name;
    Place comment;
    std::uint32_t dataBytes;         // of a record
    std::uint32_t invalidationBytes; // after them
};
Bytes block(const ChannelGroup& group);

// CN
enum class NumberType : std::uint8_t { integer = 2, real = 4 }; // signed; both little-endian
struct Channel {
    Place next;
    Place name;
    Place unit;
    NumberType type;
    std::uint32_t offset; // bytes in the record
    std::uint32_t bytes;
    std::optional<std::uint32_t> invalidationBit; // the master, the group's time, has none
};
Bytes block(const Channel& channel);

// TX and MD: a text of UTF-8; one that is XML.
Bytes text_block(std::string_view text);
Bytes xml_block(std::string_view xml);

// EV: both ends of a gap, one right after the other.
struct Gap {
    Place place; // of the block at its beginning
    Place name;
    std::int64_t begin; // nanoseconds from the header's start
    std::int64_t end;
};
struct GapBlocks {
    Bytes bytes;
    Place last; // of the block at its end
};
GapBlocks blocks(const Gap& gap);

// DT: the block's header, which so many bytes of records follow.
Bytes data_header(std::size_t recordBytes);

// DL: the places of a group's blocks of records, and which byte of all of the group's records each
// of them begins with.
struct DataList {
    std::span<const Place> blocks;
    std::span<const std::uint64_t> offsets;
};
Bytes block(const DataList& list);
constexpr std::size_t data_list_size(std::size_t count) {
    return link_at(1 + count) + 8 + count * sizeof(std::uint64_t);
}

} // namespace task::mdf
