#pragma once
// An XCP slave that behaves as an A2L file says: its IF_DATA gives the properties, each MEASUREMENT
// is a signal in its memory, with a known sequence of raw values. It knows nothing of the master's
// plan: it interprets commands, and strictly. No sockets and no clock of its own, so that it also
// runs inside a test. docs/architecture.md has its place.

#include "a2l/a2l_file.h"
#include "datagram.h"
#include "fault.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>

namespace simulated_slave {

// One thread's at a time. Times are in nanoseconds since the slave was switched on, and never go
// back; its own clock wraps 1.5 s after that.
class Slave {
  public:
    // Gets each datagram for the master. Link takes them.
    using Send = std::function<void(const Datagram&)>;

    // Of the faults only jump is the slave's own. The name is what GET_ID tells of the A2L file.
    // Throws std::invalid_argument for a file without DAQ in its IF_DATA, or with what cannot be
    // simulated: static lists, addresses that do not count bytes.
    Slave(const a2l::File& file, const std::set<Fault>& faults, Send send,
          std::string name = "simulated_slave");
    ~Slave();

    // A datagram from the master. Samples first what is due until now.
    void take(std::span<const std::uint8_t> datagram, std::uint64_t now_ns);

    // Samples every event that is due until now, and sends. Gives the time of the next one, or the
    // greatest number while no list runs.
    std::uint64_t advance(std::uint64_t now_ns);

    // As if it had been off until now: without a session, its clock and CTR from their beginning.
    void switch_on(std::uint64_t now_ns);

    bool connected() const;
    bool running() const;        // whether a DAQ list runs
    std::size_t signals() const; // of the A2L file, each element of an array by itself

    // Datagrams that hold anything but one whole message, and messages whose CTR is not above the
    // one before. They are ignored. CONNECT may begin with any CTR.
    std::uint64_t violations() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

// Whether the datagram begins a session.
bool is_connect(std::span<const std::uint8_t> datagram);

} // namespace simulated_slave
