#pragma once
// The frame path behind a socket, on the loopback interface: a sender and a receiver that know each
// other, what goes through them, and how long it takes.

#include "frame_path.h"
#include "host/standin/variable_store.h"
#include "io/udp_receiver.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace bench {

using Clock = std::chrono::steady_clock;

inline const io::UdpEndpoint any_port = io::parse_endpoint("127.0.0.1:0");

// A sender and a receiver that know each other.
class Network {
  public:
    explicit Network(io::UdpReceiver::Callback callback)
        : receiver(io::UdpSocket(any_port), sender_.local(), std::move(callback)) {}

    void send(const Frame& payload) const { sender_.send(receiver.local(), payload); }

  private:
    const io::UdpSocket sender_{any_port};

  public:
    io::UdpReceiver receiver;
};

// ---- rate ----

constexpr std::uint64_t datagrams = 20000;
constexpr std::uint64_t most_ahead = 8192;

inline void send_all(Network& network, const Frame& payload) {
    const std::uint64_t before = network.receiver.counters().datagrams;
    for (std::uint64_t sent = 0; sent < datagrams; ++sent) {
        while (sent % 64 == 0 && before + sent > network.receiver.counters().datagrams + most_ahead)
            std::this_thread::yield();
        network.send(payload);
    }
    while (network.receiver.counters().datagrams < before + datagrams)
        std::this_thread::yield();
    if (network.receiver.counters().kernelDrops > 0)
        throw std::runtime_error("datagrams were lost");
}

inline Prepare library_over_udp(std::size_t packetSize) {
    return [packetSize] {
        const Datagram datagram = datagram_for(packetSize);
        auto path = std::make_shared<LibraryFramePath>();
        auto network = std::make_shared<Network>(api_xcp_daq_push_frame);
        return [path, network, datagram] {
            const std::uint64_t before = updates_of_last(0, 0);
            return seconds_of([&] {
                send_all(*network, datagram.payload);
                await_updates(before + datagrams * datagram.packets);
            });
        };
    };
}

// ---- latency ----

constexpr std::size_t latency_samples = 500;
constexpr std::chrono::milliseconds sample_interval{1};

// When the datagram with each number was seen at the end of the frame path.
class Arrivals : public halmor_standin::WriteObserver {
  public:
    void written(const halmor_standin::Variable&, double, const timespec&) override { note(); }
    void note() {
        times_[count_] = Clock::now();
        count_.store(count_ + 1, std::memory_order_release);
    }
    std::size_t count() const { return count_.load(std::memory_order_acquire); }
    Clock::time_point time(std::size_t number) const { return times_[number]; }

  private:
    std::vector<Clock::time_point> times_ = std::vector<Clock::time_point>(latency_samples);
    std::atomic<std::size_t> count_ = 0;
};

inline double latency(Network& network, const Frame& payload, const Arrivals& arrivals,
                      double quantile) {
    std::vector<double> seconds;
    for (std::size_t i = 0; i < latency_samples; ++i) {
        std::this_thread::sleep_for(sample_interval);
        const auto sent = Clock::now();
        network.send(payload);
        while (arrivals.count() <= i)
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        seconds.push_back(std::chrono::duration<double>(arrivals.time(i) - sent).count());
    }
    std::sort(seconds.begin(), seconds.end());
    return seconds[static_cast<std::size_t>(quantile * (latency_samples - 1))];
}

inline Frame one_value() {
    clear_table();
    add_mixed_odt(0, 0, 1);
    Frame payload;
    xcp::append_message(payload, 0, packet_for(0, 0));
    return payload;
}

inline Prepare library_latency(double quantile) {
    return [quantile] {
        return [quantile] {
            const Frame payload = one_value();
            Arrivals arrivals;
            halmor_standin::VariableStore::observe(&arrivals);
            LibraryFramePath path;
            Network network(api_xcp_daq_push_frame);
            const double seconds = latency(network, payload, arrivals, quantile);
            halmor_standin::VariableStore::observe(nullptr);
            return seconds;
        };
    };
}

} // namespace bench
