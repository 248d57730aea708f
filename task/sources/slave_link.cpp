#include "slave_link.h"

#include "xcp/event_codes.h"
#include "xcp/message.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <thread>

namespace task {

namespace {

using std::chrono::steady_clock;
using xcp_master::Received;
using xcp_master::Time;

constexpr std::size_t most_packets = 1000;       // that wait: a slave may send events without end
constexpr std::size_t longest_cto = 255;         // bytes of an answer
constexpr std::chrono::milliseconds look_up{20}; // for an interruption

const io::UdpEndpoint any_endpoint{};

} // namespace

SlaveLink::SlaveLink(const io::UdpEndpoint& slave, std::function<bool()> stopWanted,
                     std::function<bool()> urgent)
    : slave_(slave), stopWanted_(std::move(stopWanted)), urgent_(std::move(urgent)),
      receiver_(io::UdpSocket(any_endpoint), slave,
                [this](const std::uint8_t* data, std::uint64_t length) {
                    receive_datagram({data, length});
                }) {}

Time SlaveLink::now() const {
    return steady_clock::now().time_since_epoch();
}

void SlaveLink::send(std::span<const std::uint8_t> datagram) {
    receiver_.send(slave_, datagram);
}

std::optional<Received> SlaveLink::receive(Time until) {
    std::unique_lock lock(mutex_);
    check_interruption();
    while (packets_.empty()) {
        if (now() >= until)
            return {};
        const Time next = std::min<Time>(until, now() + look_up);
        arrived_.wait_until(lock, steady_clock::time_point(next));
        check_interruption();
    }
    Received received = std::move(packets_.front());
    packets_.pop_front();
    return received;
}

void SlaveLink::await_quiet() const {
    constexpr std::chrono::milliseconds quiet{20};
    constexpr std::chrono::milliseconds longest{500};
    const Time end = now() + longest;
    while (lastDaq_ != 0 && now() - Time(lastDaq_) < quiet && now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void SlaveLink::check_interruption() {
    if (!urgent_() && (closing_ || !stopWanted_()))
        return;
    closing_ = true;
    throw xcp_master::Interrupted();
}

void SlaveLink::open(Take take) {
    const std::lock_guard lock(takeMutex_);
    take_ = std::move(take);
}

void SlaveLink::receive_datagram(std::span<const std::uint8_t> payload) noexcept {
    try {
        keep_answers(payload);
    } catch (const std::bad_alloc&) {
        // The session takes it for a lost answer.
    }
    const std::lock_guard lock(takeMutex_);
    if (take_)
        take_(payload, receiver_.arrived());
}

void SlaveLink::keep_answers(std::span<const std::uint8_t> payload) {
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);) {
        if (message.is_daq())
            lastDaq_.store(now().count(), std::memory_order_relaxed);
        if (message.packet.empty() || message.is_daq())
            continue;
        if (message.is_event() &&
            message.packet[1] == static_cast<std::uint8_t>(xcp::Event::session_terminated))
            ++terminations_;
        const std::lock_guard lock(mutex_);
        if (packets_.size() == most_packets)
            packets_.pop_front();
        const auto packet = message.packet.first(std::min(message.packet.size(), longest_cto));
        packets_.push_back({message.ctr, {packet.begin(), packet.end()}});
        arrived_.notify_one();
    }
}

} // namespace task
