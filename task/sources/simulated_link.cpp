#include "simulated_link.h"

#include <system_error>

namespace task {

SimulatedLink::SimulatedLink(const std::set<SimulatedFault>& faults)
    : faults_(faults), socket_(io::parse_endpoint("127.0.0.1:0")) {}

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
    try {
        socket_.send(master_, datagram.payload);
    } catch (const std::system_error& error) {
        error_ = error.what();
        return;
    }
    for (const auto& [sent, entry, raw] : datagram.values)
        *sent = {sent->updates + 1, entry, raw};
}

} // namespace task
