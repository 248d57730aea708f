#pragma once
// The way from the slave to the master, on which DAQ datagrams can be lost, come twice or come
// late. Counts the values that went out.

#include "datagram.h"
#include "fault.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <unordered_map>

namespace simulated_slave {

// What a master should have got of one signal: how often, and the last value.
struct SentValue {
    std::uint64_t count = 0;
    double physical = 0;
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

  private:
    bool is_due(Fault fault) const;
    void transmit(const Datagram& datagram);

    const std::set<Fault> faults_;
    const Transmit transmit_;
    std::uint64_t datagrams_ = 0; // of DAQ messages
    std::optional<Datagram> late_;
    std::unordered_map<const a2l::Signal*, SentValue> sent_;
};

} // namespace simulated_slave
