#include "api_xcp_daq.h"

#include "byte_order.h"
#include "standard_output.h"
#include "value_conversion.h"
#include "xcp_message.h"

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
    constexpr std::int64_t beyondLastByte = 1 + std::int64_t{xcp_daq::timestamp_size};
    return (first.daqMode & MODE_TIMESTAMP) != 0 &&
           last.lastByte + beyondLastByte == static_cast<std::int64_t>(packetLength) &&
           packetLength >= xcp_daq::identification_size + xcp_daq::timestamp_size;
}

// Out of line, so that packets without a timestamp do not pay for its registers.
[[gnu::noinline]] void take_timestamp(const Frame& frame, timespec* firstSampleTime) {
    TimeValue_nsec =
        xcp_daq::load_little_endian<std::uint32_t>(&frame[xcp_daq::identification_size]);
    calculate_rollover(TimeValue_nsec, &LastTimeValue_nsec, &CorrectedSampleTime, firstSampleTime);
}

template <class Unsigned>
void write_value(const odt_table_entry& entry, const std::uint8_t* bytes) {
    auto raw = xcp_daq::load_little_endian<Unsigned>(bytes);
    if (entry.byteOrder == 0)
        raw = xcp_daq::reverse_bytes(raw);
    const xcp_daq::Conversion conversion{entry.factor, entry.offset, entry.lowerLimit,
                                         entry.upperLimit};
    if (entry.hostVar->kind == integer_kind)
        set_daq_integer(entry.hostVar, xcp_daq::convert_to_integer(raw, conversion),
                        &CorrectedSampleTime);
    else
        set_daq_real(entry.hostVar, xcp_daq::convert_to_real(raw, conversion),
                     &CorrectedSampleTime);
}

[[gnu::cold, gnu::noinline]] void print_odd_size(std::int32_t size) {
    xcp_daq::print_line(" Invalid odt entry size " + std::to_string(size));
}

[[gnu::cold, gnu::noinline]] void print_unknown_list(int daq) {
    xcp_daq::print_line("Received Invalid buffer or out of range daqNum = " + std::to_string(daq));
}

void decode_entry(const odt_table_entry& entry, const std::uint8_t* bytes) {
    switch (entry.size) {
    case 1:
        return write_value<std::uint8_t>(entry, bytes);
    case 2:
        return write_value<std::uint16_t>(entry, bytes);
    case 4:
        return write_value<std::uint32_t>(entry, bytes);
    case 8:
        return write_value<std::uint64_t>(entry, bytes);
    default:
        return print_odd_size(entry.size);
    }
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

// Kept out of the decoder's own code, as are the other messages: they are rare, and text is large.
[[gnu::cold, gnu::noinline]] void print_unknown_odt(const Frame& frame, int daq, int odt,
                                                    std::int64_t lastIndex) {
    xcp_daq::print_line("buffer.size = " + std::to_string(frame.size()) +
                        " Unable daqNum= " + std::to_string(daq) +
                        " OdtEntryIndex= " + std::to_string(odt) + " to find entry in using odt " +
                        std::to_string(odt) + " " + std::to_string(lastIndex));
}

} // namespace

template <class Unsigned>
static std::uint8_t reverse_in_place(void* data) {
    Unsigned value;
    std::memcpy(&value, data, sizeof value);
    value = xcp_daq::reverse_bytes(value);
    std::memcpy(data, &value, sizeof value);
    return 1;
}

std::uint8_t swap_bytes_endiness(int size, int byteOrder, void* data) {
    if (byteOrder != 0)
        return 0;
    switch (size) {
    case 2:
        return reverse_in_place<std::uint16_t>(data);
    case 4:
        return reverse_in_place<std::uint32_t>(data);
    case 8:
        return reverse_in_place<std::uint64_t>(data);
    default:
        return 0;
    }
}

void api_xcp_daq::processFrame(const std::vector<std::uint8_t>& frame, timespec* firstSampleTime) {
    if (frame.size() < xcp_daq::identification_size)
        return; // names no ODT, so there is nothing to tell about it
    const std::uint8_t odt = frame[0];
    const std::uint8_t daq = frame[1];
    if (daq >= MAX_NUMBER_DAQ_LISTS)
        return print_unknown_list(daq);

    const xcpDAQList& list = appData.daqList[daq];
    const EntryMap& entries = list.odtEntryMap;
    const auto info = list.odtTableInfo.find(odt);
    const std::uint64_t count = info == list.odtTableInfo.end() ? 0 : info->second.entryCount;
    const auto lastIndex = static_cast<std::int64_t>(count) - 1;
    const auto last = entries.find({odt, static_cast<std::int32_t>(lastIndex)});
    if (last == entries.end())
        return print_unknown_odt(frame, daq, odt, lastIndex);
    const auto first = entries.find({odt, 0});
    if (first == entries.end())
        return;

    std::int64_t shift = 0;
    if (carries_timestamp(*first->second, *last->second, frame.size())) {
        shift = xcp_daq::timestamp_size;
        take_timestamp(frame, firstSampleTime);
    }
    decode_entries(first, last, frame, shift);
}
