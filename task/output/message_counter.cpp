#include "message_counter.h"

#include "io/single_writer.h"
#include "xcp/event_codes.h"
#include "xcp/message.h"

namespace task {

using io::add;

std::uint64_t MessageCounter::take(std::span<const std::uint8_t> payload) {
    xcp::MessageWalk messages(payload);
    std::uint64_t count = 0;
    std::uint64_t daqPackets = 0;
    for (xcp::Message message{}; messages.next(message); ++count) {
        check_ctr(message);
        daqPackets += message.is_daq() ? 1 : 0;
        if (message.is_event())
            take_event(message.packet);
    }
    if (daqPackets > 0)
        lastDaqPacket_.store(std::chrono::steady_clock::now(), std::memory_order_relaxed);
    add(datagrams_, 1);
    add(bytes_, payload.size());
    add(messages_, count);
    add(daqPackets_, daqPackets);
    add(cutOff_, messages.left() > 0 ? 1 : 0);
    return daqPackets;
}

void MessageCounter::take_event(std::span<const std::uint8_t> packet) {
    const auto event = static_cast<xcp::Event>(packet[1]);
    add(overloads_, event == xcp::Event::daq_overload ? 1 : 0);
    add(terminations_, event == xcp::Event::session_terminated ? 1 : 0);
}

// The counter wraps, so what lies in the half before the expected value is taken as the past.
void MessageCounter::check_ctr(const xcp::Message& message) {
    constexpr std::uint16_t half = 0x8000;
    const std::uint16_t ctr = message.ctr;
    const auto ahead = static_cast<std::uint16_t>(ctr - expected_.value_or(ctr));
    if (ahead >= half)
        return take_from_the_past(message);
    if (ahead > 0)
        skip_to(ctr);
    missed_.reset(ctr); // of 65536 messages ago
    expected_ = static_cast<std::uint16_t>(ctr + 1);
}

void MessageCounter::skip_to(std::uint16_t ctr) {
    add(gaps_, 1);
    for (std::uint16_t skipped = *expected_; skipped != ctr; ++skipped) {
        missed_.set(skipped);
        add(missing_, 1);
    }
}

// An answer that comes twice spoils no value.
void MessageCounter::take_from_the_past(const xcp::Message& message) {
    if (!missed_.test(message.ctr)) {
        add(repeated_, message.is_daq() ? 1 : 0);
        return;
    }
    missed_.reset(message.ctr);
    missing_.store(missing_.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
    add(late_, 1);
}

// What has not come of the session before will not come any more: it stays missing.
void MessageCounter::begin_session() {
    expected_.reset();
    missed_.reset();
}

std::uint16_t MessageCounter::skipped_before(std::span<const std::uint8_t> payload) const {
    xcp::Message message{};
    if (!xcp::MessageWalk(payload).next(message))
        return 0;
    return static_cast<std::uint16_t>(message.ctr - expected_.value_or(message.ctr));
}

MessageCounts MessageCounter::counts() const {
    return {datagrams_, bytes_,    messages_, daqPackets_, gaps_,         missing_,
            late_,      repeated_, cutOff_,   overloads_,  terminations_, lastDaqPacket_};
}

} // namespace task
