#include "workload.h"

#include "host/standin/variable_store.h"
#include "xcp/byte_order.h"
#include "xcp/message.h"
#include "xcp_daq/value_conversion.h"

#include <string>

namespace bench {

using halmor_standin::Variable;
using halmor_standin::VariableKind;
using halmor_standin::VariableStore;

namespace {

constexpr std::size_t largest_payload = 1400;

// Variables are made once and taken again by later tables.
std::string variable_name(int daq, int odt, int index, bool integer) {
    std::string name = std::to_string(daq) + "_" + std::to_string(odt) + "_" +
                       std::to_string(index) + (integer ? "i" : "r");
    VariableStore& store = VariableStore::instance();
    if (store.find(name) == nullptr)
        store.define(name, integer ? VariableKind::integer : VariableKind::real, "");
    return name;
}

void add_entry(int daq, int odt, int index, int size, bool integer, int byteOrder) {
    const std::string name = variable_name(daq, odt, index, integer);
    api_xcp_daq::addMeasurement(name, daq, odt, index, size, 0);
    api_xcp_daq::addComputeMethod(name, daq, 0, 0.5, 10.0, 0, byteOrder, -1e9, 1e9);
}

const timespec zero_time{};

template <class Unsigned>
void write(const odt_table_entry& entry, const std::uint8_t* bytes) {
    auto raw = xcp::load_little_endian<Unsigned>(bytes);
    if (entry.byteOrder == 0)
        raw = xcp::reverse_bytes(raw);
    const xcp_daq::Conversion c{entry.factor, entry.offset, entry.lowerLimit, entry.upperLimit};
    if (entry.hostVar->kind == 2)
        set_daq_integer(entry.hostVar, xcp_daq::convert_to_integer(raw, c), &zero_time);
    else
        set_daq_real(entry.hostVar, xcp_daq::convert_to_real(raw, c), &zero_time);
}

void write_entry(const odt_table_entry& entry, const Frame& frame) {
    const std::uint8_t* bytes = frame.data() + entry.firstByte;
    switch (entry.size) {
    case 1:
        return write<std::uint8_t>(entry, bytes);
    case 2:
        return write<std::uint16_t>(entry, bytes);
    case 4:
        return write<std::uint32_t>(entry, bytes);
    default:
        return write<std::uint64_t>(entry, bytes);
    }
}

} // namespace

void clear_table() {
    for (xcpDAQList& list : appData.daqList) {
        list.odtTableInfo.clear();
        list.odtEntryMap.clear();
        list.odtEntryByName.clear();
    }
}

void add_mixed_odt(int daq, int odt, int entries) {
    constexpr int sizes[] = {2, 4, 1, 8};
    for (int index = 0; index < entries; ++index)
        add_entry(daq, odt, index, sizes[index % 4], index / 4 % 2 == 0, index / 8 % 2);
}

void add_plain_odt(int daq, int odt, std::size_t bytes) {
    const int whole = static_cast<int>((bytes - xcp::identification_size) / 4);
    const int rest = static_cast<int>((bytes - xcp::identification_size) % 4);
    for (int index = 0; index < whole; ++index)
        add_entry(daq, odt, index, 4, false, 1);
    if (rest > 0)
        add_entry(daq, odt, whole, rest, false, 1);
}

Frame packet_for(int daq, int odt) {
    const auto& list = appData.daqList[static_cast<std::size_t>(daq)];
    Frame frame(static_cast<std::size_t>(list.odtTableInfo.at(odt).odtLength), 0x21);
    frame[0] = static_cast<std::uint8_t>(odt);
    frame[1] = static_cast<std::uint8_t>(daq);
    return frame;
}

Datagram datagram_of(const Frame& packet) {
    Datagram datagram{{}, 0};
    const std::size_t each = xcp::message_header_size + packet.size();
    for (; datagram.payload.size() + each <= largest_payload; ++datagram.packets)
        xcp::append_message(datagram.payload, 0, packet);
    return datagram;
}

std::uint64_t updates_of_last(int daq, int odt) {
    const auto& list = appData.daqList[static_cast<std::size_t>(daq)];
    const auto count = static_cast<std::int32_t>(list.odtTableInfo.at(odt).entryCount);
    const auto* entry = list.odtEntryMap.at({odt, count - 1});
    return static_cast<const Variable*>(entry->hostVar->object)->read().updates;
}

void decode_map_by_hand(const EntryMap& entries, const Frame& frame) {
    for (auto position = entries.find({frame[0], 0});
         position != entries.end() && position->first.first == frame[0]; ++position)
        write_entry(*position->second, frame);
}

void decode_array_by_hand(const std::vector<const odt_table_entry*>& entries, const Frame& frame) {
    for (const odt_table_entry* entry : entries)
        write_entry(*entry, frame);
}

} // namespace bench
