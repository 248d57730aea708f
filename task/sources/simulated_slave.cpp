#include "simulated_slave.h"

#include "interruptible_sleep.h"
#include "xcp/byte_order.h"
#include "xcp/message.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numbers>

namespace task {

using io::UdpEndpoint;

namespace {

constexpr std::chrono::milliseconds cycle_time{1};
constexpr std::uint32_t cycle_nanoseconds = 1'000'000;
constexpr std::uint32_t list_nanoseconds = 1'000; // between lists of one cycle
constexpr std::uint32_t jump_nanoseconds = 2'000'000'000;
constexpr std::uint32_t first_timestamp = 0U - 1'500'000'000U;
constexpr std::uint64_t list_periods[MAX_NUMBER_DAQ_LISTS] = {1, 5, 20, 100}; // cycles
constexpr std::size_t largest_payload = 1400;

// False for a size that no number has.
bool append_raw(std::vector<std::uint8_t>& packet, std::uint64_t raw, int size, int byteOrder) {
    return xcp::with_unsigned_of(size, [&]<class Unsigned>(Unsigned value) {
        value = static_cast<Unsigned>(raw);
        if (byteOrder == 0)
            value = xcp::reverse_bytes(value);
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(&value);
        packet.insert(packet.end(), bytes, bytes + sizeof value);
    });
}

void append_value(std::vector<std::uint8_t>& packet, std::uint64_t raw,
                  const odt_table_entry& entry) {
    if (!append_raw(packet, raw, entry.size, entry.byteOrder)) // then it is a filler
        packet.resize(packet.size() + static_cast<std::size_t>(std::max(entry.size, 0)));
}

// A sine over the whole range of the raw value; of 8 bytes over 40 bits, which a real variable
// takes exactly.
std::uint64_t wave(int size, double hertz, std::uint64_t cycle) {
    const int bits = std::min(8 * size, 40);
    const double seconds = static_cast<double>(cycle) * cycle_nanoseconds * 1e-9;
    const double level = 0.5 + 0.5 * std::sin(2.0 * std::numbers::pi * hertz * seconds);
    return static_cast<std::uint64_t>(level * (std::ldexp(1.0, bits) - 1.0));
}

} // namespace

SimulatedSlave::SimulatedSlave(const std::set<SimulatedFault>& faults)
    : clockJumps_(faults.contains(SimulatedFault::jump)), link_(faults), clock_(first_timestamp) {
    for (std::uint8_t number = 0; number < MAX_NUMBER_DAQ_LISTS; ++number)
        add_list(number);
}

SimulatedSlave::~SimulatedSlave() {
    stop();
}

void SimulatedSlave::add_list(std::uint8_t number) {
    List list{number, list_periods[number], {}};
    int variables = 0;
    for (const auto& [key, place] : appData.daqList[number].odtEntryMap) {
        if (key.first < 0 || key.first > xcp::last_daq_pid)
            continue; // no DAQ packet can name such an ODT
        const auto odt = static_cast<std::uint8_t>(key.first);
        if (list.odts.empty() || list.odts.back().number != odt)
            list.odts.push_back(
                {odt, list.odts.empty() && (place->daqMode & MODE_TIMESTAMP) != 0, {}});
        SentValue* sent = place->hostVar == nullptr ? nullptr : &sent_[place->name];
        list.odts.back().entries.push_back({place, 0.2 * (1 + variables++ % 5), sent});
    }
    if (!list.odts.empty())
        lists_.push_back(std::move(list));
}

void SimulatedSlave::start(const UdpEndpoint& master) {
    thread_ = std::jthread([this, master](const std::stop_token& stop) { run(stop, master); });
}

void SimulatedSlave::stop() {
    thread_.request_stop();
    if (thread_.joinable())
        thread_.join();
}

void SimulatedSlave::run(const std::stop_token& stop, const UdpEndpoint& master) {
    link_.connect(master);
    auto due = std::chrono::steady_clock::now();
    for (std::uint64_t cycle = 0; error().empty() && !stop.stop_requested(); ++cycle) {
        send_cycle(cycle);
        due += cycle_time;
        clock_ += cycle_nanoseconds;
        if (clockJumps_ && cycle % datagrams_per_fault == 0)
            clock_ += jump_nanoseconds;
        sleep_until(due, stop);
    }
    link_.finish();
}

void SimulatedSlave::send_cycle(std::uint64_t cycle) {
    for (const List& list : lists_)
        if (cycle % list.periodCycles == 0)
            for (const Odt& odt : list.odts)
                append_packet(list, odt, cycle);
    flush();
}

void SimulatedSlave::append_packet(const List& list, const Odt& odt, std::uint64_t cycle) {
    packet_ = {odt.number, list.number};
    if (odt.stamped)
        append_raw(packet_, clock_ + list.number * list_nanoseconds, xcp::timestamp_size, 1);
    values_.clear();
    for (const Entry& entry : odt.entries) {
        const std::uint64_t raw = wave(entry.place->size, entry.waveHertz, cycle);
        append_value(packet_, raw, *entry.place);
        if (entry.sent != nullptr)
            values_.push_back({entry.sent, entry.place, raw});
    }
    if (datagram_.payload.size() + xcp::message_header_size + packet_.size() > largest_payload)
        flush();
    xcp::append_message(datagram_.payload, ctr_++, packet_);
    datagram_.values.insert(datagram_.values.end(), values_.begin(), values_.end());
}

void SimulatedSlave::flush() {
    if (!datagram_.payload.empty())
        link_.send(datagram_);
    datagram_.payload.clear();
    datagram_.values.clear();
}

} // namespace task
