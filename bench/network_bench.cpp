// Over UDP on the loopback interface: rate, and latency from the socket to the value.

#include "network_path.h"

#include <semaphore>
#include <tuple>

namespace bench {

namespace {

Prepare thrown_away(std::size_t packetSize) {
    return [packetSize] {
        const Datagram datagram = datagram_for(packetSize);
        auto network = std::make_shared<Network>([](const std::uint8_t*, std::uint64_t) {});
        return [network, datagram] {
            return seconds_of([&] { send_all(*network, datagram.payload); });
        };
    };
}

// The same socket and receive loop, then a semaphore wakes a second thread.
Prepare wake_up_latency(double quantile) {
    return [quantile] {
        return [quantile] {
            const Frame payload = one_value();
            Arrivals arrivals;
            std::counting_semaphore<> count{0};
            std::thread woken([&] {
                for (std::size_t i = 0; i < latency_samples; ++i) {
                    count.acquire();
                    arrivals.note();
                }
            });
            double seconds = 0;
            {
                Network network([&](const std::uint8_t*, std::uint64_t) { count.release(); });
                seconds = latency(network, payload, arrivals, quantile);
            }
            woken.join();
            return seconds;
        };
    };
}

} // namespace

void add_network() {
    for (const std::size_t size : packet_sizes) {
        const Datagram datagram = datagram_for(size);
        const bool large = size == 240;
        const Row row{"udp",
                      size_text(size) + (large ? ", to discarding" : ", to the frame path's rate"),
                      "at least 0.8",
                      true,
                      true,
                      link_seconds(datagram)};
        add(row, "library", datagrams * datagram.packets, library_over_udp(size));
        if (large)
            add(row, "floor", datagrams * datagram.packets, thrown_away(size));
        else
            add(row, "floor", path_items(datagram), along<LibraryFramePath>(size));
    }
    for (const auto& [title, quantile, reach] : {std::tuple("1 kHz, p50", 0.50, "at most 1.25"),
                                                 std::tuple("1 kHz, p99", 0.99, "reported")}) {
        const Row row{"latency", title, reach, true};
        add(row, "library", 1, library_latency(quantile), true);
        add(row, "floor", 1, wake_up_latency(quantile), true);
    }
}

} // namespace bench
