#include "mdf_blocks.h"

#include <bit>
#include <cstring>
#include <initializer_list>

namespace task::mdf {

static_assert(std::endian::native == std::endian::little,
              "the file's numbers are written as they lie in memory");

namespace {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

constexpr u8 utc_with_offsets = 2; // flags of a time: not local, zone and daylight saving are known

class Fields {
  public:
    template <class... Number>
    explicit Fields(Number... numbers) {
        (add(numbers), ...);
    }
    template <class Number>
    Fields& add(Number number) {
        return add_all(std::span(&number, 1));
    }
    template <class Items>
    Fields& add_all(const Items& items) {
        const auto added = std::as_bytes(std::span(items));
        const std::size_t before = bytes_.size();
        zeros(added.size());
        if (!added.empty())
            std::memcpy(&bytes_[before], added.data(), added.size());
        return *this;
    }
    // Not inline: it would make GCC 12 see an overflow that there is not.
    [[gnu::noinline]] Fields& zeros(std::size_t count) {
        bytes_.resize(bytes_.size() + count);
        return *this;
    }
    const Bytes& bytes() const { return bytes_; }

  private:
    Bytes bytes_;
};

Bytes header(std::string_view id, u64 length, u64 links) {
    return Fields().add_all(id).zeros(4).add(length).add(links).bytes();
}

Bytes make_block(std::string_view id, const std::vector<Place>& links, const Fields& data) {
    const Fields body = Fields().add_all(links).add_all(data.bytes());
    const u64 length = block_header_size + body.bytes().size();
    return Fields().add_all(header(id, length, links.size())).add_all(body.bytes()).bytes();
}

// The text ends with at least one zero.
Bytes make_text(std::string_view id, std::string_view text) {
    const std::size_t zeros = alignment - text.size() % alignment;
    return make_block(id, {}, Fields().add_all(text).zeros(zeros));
}

Bytes make_event(Place next, Place range, Place name, u8 rangeType, std::int64_t time) {
    constexpr u8 acquisition_interrupt = 2;
    constexpr u8 in_seconds = 1;
    constexpr u8 cause_error = 1;
    constexpr double seconds_per_step = 1e-9;
    return make_block("##EV", {next, 0, range, name, 0},
                      Fields(acquisition_interrupt, in_seconds, rangeType, cause_error)
                          .zeros(12) // flags; numbers of scopes and attachments; creator
                          .add(time)
                          .add(seconds_per_step));
}

} // namespace

Bytes identification(bool finalised) {
    constexpr u16 record_counts_to_be_updated = 1;
    const std::string_view kind = finalised ? "MDF     " : "UnFinMF ";
    return Fields()
        .add_all(kind)
        .add_all(std::string_view("4.10    xcp_daq "))
        .zeros(4)
        .add(u16{410})
        .zeros(30)
        .add(finalised ? u16{0} : record_counts_to_be_updated)
        .zeros(2)
        .bytes();
}

Bytes block(const Header& header) {
    return make_block("##HD", {header.firstDataGroup, header.fileHistory, 0, 0, 0, 0},
                      Fields(header.start.nanoseconds, header.start.zone, header.start.daylight,
                             utc_with_offsets)
                          .zeros(3)    // the clock is the computer's; no start angle or distance
                          .zeros(16)); // which they would be
}

Bytes block(const FileHistory& history) {
    return make_block(
        "##FH", {0, history.comment},
        Fields(history.time.nanoseconds, history.time.zone, history.time.daylight, utc_with_offsets)
            .zeros(3));
}

Bytes block(const DataGroup& group) {
    return make_block("##DG", {group.next, group.channelGroup, 0, 0}, Fields().zeros(8));
}

Bytes block(const ChannelGroup& group) {
    return make_block("##CG", {0, group.firstChannel, group.name, 0, 0, group.comment},
                      Fields()
                          .zeros(24) // record id; number of records; flags
                          .add(group.dataBytes)
                          .add(group.invalidationBytes));
}

Bytes block(const Channel& channel) {
    constexpr u8 master = 2;
    constexpr u8 time = 1;
    constexpr u32 has_invalidation_bit = 2;
    const bool value = channel.invalidationBit.has_value();
    return make_block("##CN", {channel.next, 0, channel.name, 0, 0, 0, channel.unit, 0},
                      Fields(value ? u8{0} : master, value ? u8{0} : time, channel.type, u8{0},
                             channel.offset, 8 * channel.bytes, value ? has_invalidation_bit : 0,
                             channel.invalidationBit.value_or(0))
                          .zeros(4)    // precision; attachments
                          .zeros(48)); // ranges and limits
}

Bytes text_block(std::string_view text) {
    return make_text("##TX", text);
}

Bytes xml_block(std::string_view xml) {
    return make_text("##MD", xml);
}

GapBlocks blocks(const Gap& gap) {
    constexpr u8 range_begin = 1;
    constexpr u8 range_end = 2;
    const Bytes end = make_event(0, gap.place, gap.name, range_end, gap.end);
    const Place last = gap.place + end.size(); // which both have
    const Bytes begin = make_event(last, 0, gap.name, range_begin, gap.begin);
    return {Fields().add_all(begin).add_all(end).bytes(), last};
}

Bytes data_header(std::size_t recordBytes) {
    return header("##DT", block_header_size + recordBytes, 0);
}

Bytes block(const DataList& list) {
    std::vector<Place> links = {0};
    links.insert(links.end(), list.blocks.begin(), list.blocks.end());
    return make_block(
        "##DL", links,
        Fields().zeros(4).add(static_cast<u32>(list.blocks.size())).add_all(list.offsets));
}

} // namespace task::mdf
