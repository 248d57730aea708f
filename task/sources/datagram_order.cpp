#include "datagram_order.h"

#include "xcp/message.h"

#include <algorithm>
#include <utility>

namespace task {

namespace {

constexpr std::uint16_t farthest = 4096; // messages: what lies further ahead is no overtaking
constexpr std::size_t most_waiting = 1024;

std::optional<std::uint16_t> first_ctr(std::span<const std::uint8_t> payload) {
    xcp::Message message{};
    return xcp::MessageWalk(payload).next(message) ? std::optional(message.ctr) : std::nullopt;
}

// Of a payload with a message.
std::uint16_t ctr_behind(std::span<const std::uint8_t> payload) {
    std::uint16_t ctr = 0;
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);)
        ctr = static_cast<std::uint16_t>(message.ctr + 1);
    return ctr;
}

} // namespace

DatagramOrder::DatagramOrder(std::chrono::milliseconds hold, Take take)
    : hold_(hold), take_(std::move(take)) {}

void DatagramOrder::take(std::span<const std::uint8_t> payload, Arrival arrival) {
    const auto ctr = first_ctr(payload);
    if (hold_.count() == 0 || !ctr)
        return take_(payload, arrival);
    const auto ahead = static_cast<std::uint16_t>(*ctr - expected_.value_or(*ctr));
    if (ahead > 0 && ahead < farthest) {
        wait(ahead, {*ctr, arrival, {payload.begin(), payload.end()}});
    } else {
        putRight_ += ahead > 0 || waiting_.empty() ? 0 : 1;
        go_on(*ctr, payload, arrival);
        let_go_whatever_follows();
    }
    advance(arrival);
}

void DatagramOrder::wait(std::uint16_t ahead, Waiting datagram) {
    const auto place = std::find_if(waiting_.begin(), waiting_.end(), [&](const auto& each) {
        return static_cast<std::uint16_t>(each.ctr - *expected_) > ahead;
    });
    waiting_.insert(place, std::move(datagram));
}

// How far the counter is behind the expected one; the half before it is the past.
bool DatagramOrder::is_past(std::uint16_t ctr) const {
    constexpr std::uint16_t half = 0x8000;
    return expected_ && static_cast<std::uint16_t>(ctr - *expected_) >= half;
}

void DatagramOrder::go_on(std::uint16_t ctr, std::span<const std::uint8_t> payload,
                          Arrival arrival) {
    if (!is_past(ctr)) // or it has come twice
        expected_ = ctr_behind(payload);
    take_(payload, arrival);
}

void DatagramOrder::let_go_first() {
    const Waiting first = std::move(waiting_.front());
    waiting_.erase(waiting_.begin());
    go_on(first.ctr, first.payload, first.arrival);
}

void DatagramOrder::let_go_whatever_follows() {
    while (!waiting_.empty() &&
           (waiting_.front().ctr == expected_ || is_past(waiting_.front().ctr)))
        let_go_first();
}

void DatagramOrder::advance(Arrival now) {
    const auto waited = [&](const Waiting& each) { return now - each.arrival >= hold_; };
    while (waiting_.size() > most_waiting ||
           std::any_of(waiting_.begin(), waiting_.end(), waited)) {
        let_go_first();
        let_go_whatever_follows();
    }
}

void DatagramOrder::flush() {
    while (!waiting_.empty())
        let_go_first();
    expected_.reset();
}

} // namespace task
