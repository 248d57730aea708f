#pragma once
// A measurement file (ASAM MDF 4.1) that grows while it can be opened at any moment: what is new is
// added at the end and linked once it is there. Each group has its records in blocks of its own.

#include "io/file_descriptor.h"
#include "mdf_blocks.h"

#include <ctime>
#include <string>
#include <vector>

namespace task {

struct MdfChannel {
    std::string name;
    std::string unit; // empty: none
    mdf::NumberType type;
    std::uint32_t offset; // bytes in the record
    std::uint32_t bytes;
};

// A record is the time, a real number of 8 bytes in seconds, the channels, and their invalidation
// bits: bit 0 of the first byte is the first channel's.
struct MdfGroup {
    std::string name;
    std::string comment; // empty: none
    std::vector<MdfChannel> channels;
    std::uint32_t dataBytes;
    std::uint32_t invalidationBytes;

    std::size_t record_size() const { return dataBytes + invalidationBytes; }
};

class MdfFile {
  public:
    // The times of all records count from the start, nanoseconds since 1970. Throws io::FileError.
    MdfFile(const std::string& path, std::int64_t start, const std::vector<MdfGroup>& groups);

    // Each of these gives false, and the error is there, when the disk refused something; then none
    // but finalise() is to be called any more.

    // Adds a block of whole records.
    bool add_records(std::size_t group, std::span<const std::uint8_t> records);
    // Nanoseconds from the start.
    bool add_gap(std::int64_t begin, std::int64_t end);
    // Says in the file that it is complete, as far as it goes.
    bool finalise();

    const std::string& error() const { return error_; }

  private:
    // A group's blocks of records, through lists of blocks of which the last one is being filled.
    struct Chain {
        mdf::Place channelGroup;
        mdf::Place nextListLink; // where the place of the next list is to be written
        std::size_t recordSize;
        mdf::Place list = 0;
        std::vector<mdf::Place> blocks = {}; // of the last list
        std::vector<std::uint64_t> offsets = {};
        std::uint64_t bytes = 0; // of records in the whole chain
    };

    mdf::Bytes first_blocks(std::int64_t start, const std::vector<MdfGroup>& groups);
    mdf::Place add_group(mdf::Bytes& file, const MdfGroup& group, mdf::Place next);
    bool link(Chain& chain, mdf::Place newBlock);
    bool begin_list(Chain& chain);
    bool count_records(const Chain& chain);
    bool append(std::span<const std::uint8_t> bytes);
    bool write(mdf::Place place, std::span<const std::uint8_t> bytes);
    bool write(mdf::Place place, std::uint64_t number);

    io::FileDescriptor file_;
    std::vector<Chain> chains_; // by group
    mdf::Place end_ = 0;        // where the next block goes
    mdf::Place nextGapLink_ = mdf::Header::firstEventAt;
    mdf::Place gapName_ = 0; // 0: there was no gap yet
    std::string error_;
};

} // namespace task
