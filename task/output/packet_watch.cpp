#include "packet_watch.h"

#include <fmt/format.h>

#include <algorithm>

namespace task {

namespace {

constexpr std::size_t unknown_shown = 4;

// The library walks an ODT from entry 0 to the entry of the last index; without one of the two it
// decodes nothing.
const odt_table_entry* find_entry(const xcpDAQList& list, std::int32_t odt, std::uint64_t index) {
    const auto found = list.odtEntryMap.find({odt, static_cast<std::int32_t>(index)});
    return found == list.odtEntryMap.end() ? nullptr : found->second;
}

} // namespace

PacketWatch::PacketWatch() {
    firstUnknown_.reserve(unknown_shown);
    for (std::size_t number = 0; number < lists_.size(); ++number) {
        const xcpDAQList& table = appData.daqList[number];
        for (const auto& [odt, info] : table.odtTableInfo) {
            const odt_table_entry* first = find_entry(table, odt, 0);
            const odt_table_entry* last = find_entry(table, odt, info.entryCount - 1);
            if (odt < 0 || odt > xcp::last_daq_pid || first == nullptr || last == nullptr)
                continue;
            const bool stamped = (first->daqMode & MODE_TIMESTAMP) != 0;
            Odt& place = lists_[number].odts[static_cast<std::size_t>(odt)];
            place.decoded = true;
            place.stamped = stamped;
            place.length = std::int64_t{last->lastByte} + 1;
            lists_[number].stamped = lists_[number].stamped || stamped;
        }
    }
}

void PacketWatch::take(std::span<const std::uint8_t> payload, const PayloadSink& library) {
    const std::uint8_t* piece = payload.data(); // begins what has not been handed on yet
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);) {
        if (message.is_daq() ? take_packet(message.packet) : !message.is_service_request())
            continue;
        const std::uint8_t* start = message.packet.data() - xcp::message_header_size;
        if (start != piece)
            library(piece, static_cast<std::uint64_t>(start - piece));
        piece = message.packet.data() + message.packet.size();
    }
    const std::uint8_t* end = payload.data() + payload.size();
    if (piece != end)
        library(piece, static_cast<std::uint64_t>(end - piece));
}

// False for a packet that the library is not to get.
bool PacketWatch::take_packet(std::span<const std::uint8_t> packet) {
    const int number = packet.size() < xcp::identification_size ? -1 : packet[1];
    const bool hasList = number >= 0 && number < MAX_NUMBER_DAQ_LISTS;
    if (!hasList || !lists_[packet[1]].odts[packet[0]].decoded) {
        note_unknown(number, packet[0]);
        return false;
    }
    List& list = lists_[packet[1]];
    Odt& odt = list.odts[packet[0]];
    list.came.store(true, std::memory_order_relaxed);
    const auto length = static_cast<std::int64_t>(packet.size());
    constexpr auto stamp = static_cast<std::int64_t>(xcp::timestamp_size);
    if (odt.stamped && length == odt.length + stamp) {
        list.stampCame.store(true, std::memory_order_relaxed);
    } else if (length != odt.length) {
        if (odt.otherLengths++ == 0)
            odt.firstOther = packet.size();
        odd_.store(true, std::memory_order_relaxed);
    }
    return true;
}

void PacketWatch::note_unknown(int list, int odt) {
    ++unknown_;
    odd_.store(true, std::memory_order_relaxed);
    const auto known =
        std::find_if(firstUnknown_.begin(), firstUnknown_.end(),
                     [&](const Unknown& kind) { return kind.list == list && kind.odt == odt; });
    if (known != firstUnknown_.end())
        ++known->packets;
    else if (firstUnknown_.size() < unknown_shown)
        firstUnknown_.push_back({list, odt, 1});
}

bool PacketWatch::stamps_are_missing(const List& list) const {
    return list.stamped && list.came && !list.stampCame;
}

bool PacketWatch::misfits() const {
    return odd_ || std::any_of(lists_.begin(), lists_.end(),
                               [this](const List& list) { return stamps_are_missing(list); });
}

std::vector<std::string> PacketWatch::doubts() const {
    std::vector<std::string> lines;
    for (std::size_t number = 0; number < lists_.size(); ++number) {
        const List& list = lists_[number];
        for (std::size_t odt = 0; odt < list.odts.size(); ++odt)
            if (const Odt& o = list.odts[odt]; o.otherLengths > 0)
                lines.push_back(fmt::format(
                    "DAQ list {}, ODT {}: {} packets of another length than the table's, the first "
                    "of {} bytes instead of {}{}",
                    number, odt, o.otherLengths, o.firstOther, o.length,
                    o.stamped ? fmt::format(" or, with a timestamp, {}",
                                            o.length + std::int64_t{xcp::timestamp_size})
                              : ""));
        if (stamps_are_missing(list))
            lines.push_back(fmt::format("DAQ list {}: no timestamp came", number));
    }
    if (unknown_ > 0)
        lines.push_back(fmt::format(
            "{} packets of a DAQ list or ODT that the table does not have, not decoded", unknown_));
    for (const Unknown& kind : firstUnknown_)
        lines.push_back(kind.list < 0 ? fmt::format("  {} of a single byte", kind.packets)
                                      : fmt::format("  {} of DAQ list {}, ODT {}", kind.packets,
                                                    kind.list, kind.odt));
    return lines;
}

} // namespace task
