#include "simulated_link.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace task {

using halmor_standin::UdpEndpoint;

SimulatedLink::SimulatedLink(const std::set<SimulatedFault>& faults)
    : faults_(faults), socket_(bound_udp_socket(halmor_standin::parse_endpoint("127.0.0.1:0"))) {}

UdpEndpoint SimulatedLink::endpoint() const {
    return halmor_standin::local_endpoint(socket_.get());
}

void SimulatedLink::connect(const UdpEndpoint& master) {
    const sockaddr_in address = to_sockaddr(master);
    if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        error_ = std::strerror(errno);
}

// No two faults meet in one datagram.
bool SimulatedLink::is_due(SimulatedFault fault) const {
    const unsigned place = 10 * (1 + static_cast<unsigned>(fault));
    return faults_.contains(fault) && datagrams_ % datagrams_per_fault == place;
}

void SimulatedLink::send(const SimulatedDatagram& datagram) {
    ++datagrams_;
    if (is_due(SimulatedFault::lost))
        return;
    if (is_due(SimulatedFault::late)) {
        late_ = datagram;
        return;
    }
    transmit(datagram);
    if (is_due(SimulatedFault::repeated))
        transmit(datagram);
    finish();
}

void SimulatedLink::finish() {
    if (late_)
        transmit(*late_);
    late_.reset();
}

void SimulatedLink::transmit(const SimulatedDatagram& datagram) {
    if (::send(socket_.get(), datagram.payload.data(), datagram.payload.size(), 0) < 0)
        error_ = std::strerror(errno);
    for (const auto& [sent, entry, raw] : datagram.values)
        *sent = {sent->updates + 1, entry, raw};
}

} // namespace task
