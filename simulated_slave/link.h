#pragma once
// The way from the slave to the master, on which DAQ datagrams can be lost, come twice or come
// late. Counts the values that went out.

#include "datagram.h"
#include "fault.h"

#include <bit>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <unordered_map>

namespace simulated_slave {

// Sums up values, whatever their order: two sums are the same when the values are.
inline std::uint64_t value_sum(double physical) {
    const auto bits = std::bit_cast<std::uint64_t>(physical);
    return (bits ^ bits >> 29) * 0x9E3779B97F4A7C15;
}

// What a master should have got of one signal: how often, the last value, and the sum of all.
struct SentValue {
    std::uint64_t count = 0;
    double physical = 0;
    std::uint64_t sum = 0;
};

// One thread's at a time. The datagrams' signals have to outlive it.
class Link {
  public:
    // Sends one datagram. May throw, and what it throws comes out of send() and finish().
    using Transmit = std::function<void(std::span<const std::uint8_t> payload)>;

    Link(const std::set<Fault>& faults, Transmit transmit);

    void send(const Datagram& datagram);
    void finish(); // sends what is late

    std::map<std::string, SentValue> sent() const; // by signal name
    std::uint64_t lost() const { return lost_; }   // messages

  private:
    bool is_due(Fault fault) const;
    void transmit(const Datagram& datagram);

    const std::set<Fault> faults_;
    const Transmit transmit_;
    std::uint64_t datagrams_ = 0; // of DAQ messages
    std::uint64_t lost_ = 0;
    std::optional<Datagram> late_;
    std::unordered_map<const a2l::Signal*, SentValue> sent_;
};

} // namespace simulated_slave
