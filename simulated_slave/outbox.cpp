#include "outbox.h"

#include "xcp/message.h"

namespace simulated_slave {

void Outbox::add(std::span<const std::uint8_t> packet, const std::vector<Datagram::Value>& values) {
    constexpr std::size_t largest_payload = 1400; // but for a message that is longer by itself
    if (datagram_.payload.size() + xcp::message_header_size + packet.size() > largest_payload)
        flush();
    xcp::append_message(datagram_.payload, ctr_++, packet);
    datagram_.values.insert(datagram_.values.end(), values.begin(), values.end());
}

void Outbox::flush() {
    if (!datagram_.payload.empty())
        send_(datagram_);
    datagram_.payload.clear();
    datagram_.values.clear();
}

void Outbox::begin_anew() {
    datagram_ = {};
    ctr_ = 0;
}

void Outbox::answer(std::span<const std::uint8_t> packet) {
    flush(); // what was counted before it goes before it
    Datagram datagram;
    datagram.answer = true;
    xcp::append_message(datagram.payload, ctr_++, packet);
    send_(datagram);
}

} // namespace simulated_slave
