#include "link.h"

#include "xcp/message.h"

#include <utility>

namespace simulated_slave {

Link::Link(const std::set<Fault>& faults, Transmit transmit)
    : faults_(faults), transmit_(std::move(transmit)) {}

// No two faults meet in one datagram.
bool Link::is_due(Fault fault) const {
    const unsigned place = 10 * (1 + static_cast<unsigned>(fault));
    return faults_.contains(fault) && datagrams_ % datagrams_per_fault == place;
}

void Link::send(const Datagram& datagram) {
    if (datagram.answer) {
        finish(); // after the answer to a stop nothing comes any more
        transmit(datagram);
        return;
    }
    ++datagrams_;
    if (is_due(Fault::lost)) {
        xcp::MessageWalk messages(datagram.payload);
        for (xcp::Message message{}; messages.next(message);)
            ++lost_;
        return;
    }
    if (is_due(Fault::late)) {
        late_ = datagram;
        return;
    }
    transmit(datagram);
    if (is_due(Fault::repeated))
        transmit(datagram);
    finish();
}

void Link::finish() {
    if (late_)
        transmit(*late_);
    late_.reset();
}

void Link::transmit(const Datagram& datagram) {
    transmit_(datagram.payload);
    for (const auto& [signal, physical] : datagram.values) {
        SentValue& sent = sent_[signal];
        ++sent.count;
        sent.physical = physical;
        sent.sum += value_sum(physical);
    }
}

std::map<std::string, SentValue> Link::sent() const {
    std::map<std::string, SentValue> byName;
    for (const auto& [signal, sent] : sent_)
        byName[signal->name] = sent;
    return byName;
}

} // namespace simulated_slave
