#include "api_xcp_daq.h"

#include "standard_output.h"
#include "value_conversion.h"
#include "xcp/byte_order.h"
#include "xcp/message.h"

#include <cinttypes>
#include <cstring>

namespace {

using Frame = std::vector<std::uint8_t>;
using EntryMap = decltype(xcpDAQList::odtEntryMap);

constexpr std::uint16_t integer_kind = 2;

// Sample-time state, the worker's alone; it outlives every worker and every object.
std::uint32_t TimeValue_nsec = 0;
std::uint32_t LastTimeValue_nsec = 0;
timespec CorrectedSampleTime{};

// Entries lie as if there were no timestamp. Only the exact length tells that a packet carries one:
// a stamped DAQ list stamps the first ODT of each sample, not the others.
bool carries_timestamp(const odt_table_entry& first, const odt_table_entry& last,
                       std::size_t packetLength) {
    constexpr std::int64_t beyondLastByte = 1 + std::int64_t{xcp::timestamp_size};
    return (first.daqMode & MODE_TIMESTAMP) != 0 &&
           last.lastByte + beyondLastByte == static_cast<std::int64_t>(packetLength) &&
           packetLength >= xcp::identification_size + xcp::timestamp_size;
}

// Out of line, so that packets without a timestamp do not pay for its registers.
[[gnu::noinline]] void take_timestamp(const Frame& frame, timespec* firstSampleTime) {
    TimeValue_nsec = xcp::load_little_endian<std::uint32_t>(&frame[xcp::identification_size]);
    calculate_rollover(TimeValue_nsec, &LastTimeValue_nsec, &CorrectedSampleTime, firstSampleTime);
}

template <class Unsigned>
void write_value(const odt_table_entry& entry, const std::uint8_t* bytes) {
    auto raw = xcp::load_little_endian<Unsigned>(bytes);
    if (entry.byteOrder == 0)
        raw = xcp::reverse_bytes(raw);
    const xcp_daq::Conversion conversion{entry.factor, entry.offset, entry.lowerLimit,
                                         entry.upperLimit};
    if (entry.hostVar->kind == integer_kind)
        set_daq_integer(entry.hostVar, xcp_daq::convert_to_integer(raw, conversion),
                        &CorrectedSampleTime);
    else
        set_daq_real(entry.hostVar, xcp_daq::convert_to_real(raw, conversion),
                     &CorrectedSampleTime);
}

void decode_entry(const odt_table_entry& entry, const std::uint8_t* bytes) {
    const bool decoded = xcp::with_unsigned_of(
        entry.size, [&]<class Unsigned>(Unsigned) { write_value<Unsigned>(entry, bytes); });
    if (!decoded)
        xcp_daq::print_line(" Invalid odt entry size %" PRId32, entry.size);
}

// Walks the entries of one ODT from entry 0 to the last one: in the map, only entries of this ODT
// lie between the two. A gap in the table and an entry that is not wholly inside the packet end the
// packet in silence: a cut-off packet is a normal case.
void decode_entries(EntryMap::const_iterator position, EntryMap::const_iterator last,
                    const Frame& frame, std::int64_t shift) {
    const auto length = static_cast<std::int64_t>(frame.size());
    for (std::int32_t index = 0; position->first.second == index; ++index, ++position) {
        const odt_table_entry& entry = *position->second;
        const std::int64_t first = entry.firstByte + shift;
        if (first < 0 || first + entry.size > length)
            return;
        if (entry.hostVar != nullptr)
            decode_entry(entry, frame.data() + first);
        if (position == last)
            return;
    }
}

} // namespace

std::uint8_t swap_bytes_endiness(int size, int byteOrder, void* data) {
    if (byteOrder != 0 || size == 1)
        return 0;
    const bool reversed = xcp::with_unsigned_of(size, [&]<class Unsigned>(Unsigned value) {
        std::memcpy(&value, data, sizeof value);
        value = xcp::reverse_bytes(value);
        std::memcpy(data, &value, sizeof value);
    });
    return reversed ? 1 : 0;
}

void api_xcp_daq::processFrame(const std::vector<std::uint8_t>& frame, timespec* firstSampleTime) {
    if (frame.size() < xcp::identification_size)
        return; // names no ODT, so there is nothing to tell about it
    const std::uint8_t odt = frame[0];
    const std::uint8_t daq = frame[1];
    if (daq >= MAX_NUMBER_DAQ_LISTS)
        return xcp_daq::print_line("Received Invalid buffer or out of range daqNum = %d", daq);

    const xcpDAQList& list = appData.daqList[daq];
    const EntryMap& entries = list.odtEntryMap;
    const auto info = list.odtTableInfo.find(odt);
    const std::uint64_t count = info == list.odtTableInfo.end() ? 0 : info->second.entryCount;
    const auto lastIndex = static_cast<std::int64_t>(count) - 1;
    const auto last = entries.find({odt, static_cast<std::int32_t>(lastIndex)});
    if (last == entries.end())
        return xcp_daq::print_line("buffer.size = %zu Unable daqNum= %d OdtEntryIndex= %d to find "
                                   "entry in using odt %d %" PRId64,
                                   frame.size(), daq, odt, odt, lastIndex);
    const auto first = entries.find({odt, 0});
    if (first == entries.end())
        return;

    std::int64_t shift = 0;
    if (carries_timestamp(*first->second, *last->second, frame.size())) {
        shift = xcp::timestamp_size;
        take_timestamp(frame, firstSampleTime);
    }
    decode_entries(first, last, frame, shift);
}
