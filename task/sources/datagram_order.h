#pragma once
// Puts datagrams that overtook each other on their way into the order in which the slave sent them,
// by the counters of their messages (CTR of the XCP transport layer on Ethernet). When one is
// missing, those after it wait for it, for the hold at most.

#include "datagram_source.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace task {

// One thread's at a time.
class DatagramOrder {
  public:
    using Take = std::function<void(std::span<const std::uint8_t> payload, Arrival arrival)>;

    // With a hold of 0 everything goes on at once. `take` is called inside of the calls below.
    DatagramOrder(std::chrono::milliseconds hold, Take take);

    void take(std::span<const std::uint8_t> payload, Arrival arrival);

    // Lets go what has waited long enough.
    void advance(Arrival now);

    // Lets go everything; at the end, and before CTR begins anew.
    void flush();

    // Datagrams that came after a later one and were put before it. Any thread.
    std::uint64_t put_right() const { return putRight_; }

  private:
    struct Waiting {
        std::uint16_t ctr;
        Arrival arrival;
        std::vector<std::uint8_t> payload;
    };

    bool is_past(std::uint16_t ctr) const;
    void wait(std::uint16_t ahead, Waiting datagram);
    void go_on(std::uint16_t ctr, std::span<const std::uint8_t> payload, Arrival arrival);
    void let_go_first();
    void let_go_whatever_follows();

    const std::chrono::nanoseconds hold_;
    const Take take_;
    std::optional<std::uint16_t> expected_;
    std::vector<Waiting> waiting_; // in the order of their CTR
    std::atomic<std::uint64_t> putRight_ = 0;
};

} // namespace task
