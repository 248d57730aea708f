#pragma once
// Puts the samples of several DAQ lists into the order of their time. Slaves stamp their lists in
// tasks that overtake each other, by microseconds or milliseconds, while the library takes every
// timestamp below the one before for a wrap of the slave's clock, 4.29 s ahead.
//
// A sample, the stamped packet of a list and the ones that follow it, is held until every other
// list has shown a later time, or for the hold at most, and goes out whole. One that comes later
// than that goes out at once, with its time raised to the last one that went out.

#include "api_xcp_daq.h"
#include "datagram_source.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace task {

// Any thread may call; one at a time gets in.
class SampleOrder {
  public:
    using Clock = std::chrono::steady_clock;

    // Reads the library's measurement table, which stays as it is from here on. With a hold of 0,
    // or a single stamped list, everything goes out at once. The sink is called inside of the calls
    // below.
    SampleOrder(std::chrono::milliseconds hold, PayloadSink sink);

    // Messages of packets that the table has.
    void take(std::span<const std::uint8_t> payload, Clock::time_point now);

    // Lets go what has been held long enough, once nothing has come for a while: one datagram may
    // come tens of milliseconds after the other, and what it brings is not too late.
    void advance(Clock::time_point now);

    // Lets go everything; at the end.
    void flush();

    // The slave's clock begins anew. Lets go everything that came before.
    void begin_session();

    struct Counts {
        std::uint64_t raised = 0; // samples whose time was raised
        std::int64_t largestRaise_ns = 0;
        std::uint64_t overflows = 0; // samples that went early, for want of memory
    };
    Counts counts() const;

  private:
    struct Sample {
        std::uint8_t list = 0;
        std::int64_t time_ns = 0; // unwrapped
        Clock::time_point arrival;
        std::vector<std::uint8_t> messages;
    };
    struct List {
        bool stamped = false;
        std::uint8_t lastOdt = 0;
        std::array<std::optional<std::size_t>, 256> stampedLength; // by ODT, of its packets
        std::optional<std::int64_t> shown_ns;                      // latest time that it has shown
        Clock::time_point shownAt;
        std::optional<Sample> open; // being put together
    };

    void take_packet(std::uint16_t ctr, std::span<const std::uint8_t> packet,
                     Clock::time_point now);
    std::int64_t unwrap(const List& list, std::uint32_t stamp, Clock::time_point now) const;
    void close(List& list);
    void release(Clock::time_point now);
    bool all_others_are_later(const Sample& sample) const;
    void let_go_first();
    void let_go(Sample& sample);

    const std::chrono::nanoseconds hold_;
    const PayloadSink sink_;
    bool passes_ = false; // nothing is held

    mutable std::mutex mutex_; // of all below
    std::array<List, MAX_NUMBER_DAQ_LISTS> lists_;
    std::multimap<std::int64_t, Sample> held_;                        // by time
    std::deque<std::pair<Clock::time_point, std::int64_t>> arrivals_; // of the held, in their order
    std::int64_t due_ns_; // samples up to this time have been held long enough
    std::size_t heldBytes_ = 0;
    Clock::time_point lastTake_;
    std::optional<std::int64_t> lastOut_ns_;
    Counts counts_;
};

} // namespace task
