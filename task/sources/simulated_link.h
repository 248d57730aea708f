#pragma once
// The way from the simulated slave to the master: UDP on the loopback interface, on which datagrams
// can be lost, come twice or come late. Remembers the values that went out.

#include "api_xcp_daq.h"
#include "io/udp_socket.h"
#include "simulated_fault.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace task {

// What a variable should have got.
struct SentValue {
    std::uint64_t updates = 0;
    const odt_table_entry* entry = nullptr; // of the last one
    std::uint64_t raw = 0;
};

struct SimulatedDatagram {
    struct Value {
        SentValue* sent;
        const odt_table_entry* entry;
        std::uint64_t raw;
    };
    std::vector<std::uint8_t> payload;
    std::vector<Value> values; // in it, in their order
};

class SimulatedLink {
  public:
    // Binds a socket. Throws std::system_error.
    explicit SimulatedLink(const std::set<SimulatedFault>& faults);

    const io::UdpEndpoint& endpoint() const { return socket_.local(); }

    void connect(const io::UdpEndpoint& master) { master_ = master; }
    void send(const SimulatedDatagram& datagram);
    void finish(); // sends what is late

    const std::string& error() const { return error_; } // empty: none

  private:
    bool is_due(SimulatedFault fault) const;
    void transmit(const SimulatedDatagram& datagram);

    const std::set<SimulatedFault> faults_;
    io::UdpSocket socket_;
    io::UdpEndpoint master_;
    std::uint64_t datagrams_ = 0;
    std::optional<SimulatedDatagram> late_;
    std::string error_;
};

} // namespace task
