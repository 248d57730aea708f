#pragma once
// Puts the samples of several DAQ lists into the order of their time. Slaves stamp their lists in
// tasks that overtake each other, by microseconds or milliseconds, and the library's sample time
// only goes forward.
//
// A sample, the stamped packet of a list and the ones that follow it, is held until every other
// list has shown a later time, or for the hold at most, and goes out whole. One that comes later
// than that goes out at once, with its time raised to the last one that went out.

#include "datagram_source.h"
#include "delays.h"
#include "library_feed.h"
#include "slave_time.h"
#include "task/output/timing_watch.h"

#include <array>
#include <bitset>
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
    // Reads the library's measurement table, to which a tick is added. With a hold of 0, or a
    // single stamped list, everything goes out at once. The library is called inside of the calls
    // below.
    SampleOrder(std::chrono::milliseconds hold, PayloadSink library,
                const std::vector<SampleEnd>& ends = {});

    // Messages of packets that the table has.
    void take(std::span<const std::uint8_t> payload, Arrival arrival);

    // How far the first timestamp in there is off what the host's clock expects after the last one.
    std::chrono::nanoseconds off_by(std::span<const std::uint8_t> payload, Arrival arrival) const;

    // Lets go what has been held long enough, once nothing has come for a while: one datagram may
    // come tens of milliseconds after the other, and what it brings is not too late.
    void advance(Arrival now);

    // For a pause that is longer than the library's sample time goes on by itself.
    void keep_alive();

    // Lets go everything; at the end.
    void flush();

    // The slave's clock begins anew. Lets go everything that came before.
    void begin_session();

    struct Counts : LibraryFeed::Counts {
        std::uint64_t overflows = 0; // samples that went early, for want of memory
        Delays delays;
    };
    Counts counts() const;
    TimingWatch timing() const;

  private:
    struct Sample {
        std::uint8_t list = 0;
        std::int64_t time_ns = 0;
        Arrival arrival;
        std::vector<std::uint8_t> messages;
    };
    struct List {
        bool stamped = false;
        std::bitset<256> lastOdts;                                 // those with which a sample ends
        std::array<std::optional<std::size_t>, 256> stampedLength; // by ODT, of its packets
        std::optional<Sample> open;                                // being put together
    };

    using Lists = std::array<List, SlaveTime::most_lists>;

    static Lists stamped_lists();
    std::optional<std::uint32_t> stamp_of(std::span<const std::uint8_t> packet) const;
    std::int64_t time_of(std::span<const std::uint8_t> packet, std::uint32_t stamp,
                         Arrival arrival);
    void pass(std::span<const std::uint8_t> payload, Arrival arrival);
    void hold_messages(std::span<const std::uint8_t> payload, Arrival arrival);
    void hold_packet(std::span<const std::uint8_t> message, std::span<const std::uint8_t> packet,
                     Arrival arrival);
    void close(List& list);
    void release(Arrival now);
    bool all_others_are_later(const Sample& sample) const;
    void let_go_first(Arrival now);
    void let_go_all();

    const std::chrono::nanoseconds hold_;
    bool passes_ = false; // nothing is held

    mutable std::mutex mutex_; // of all below
    Lists lists_;
    LibraryFeed feed_;
    SlaveTime time_;
    TimingWatch watch_;

    std::vector<std::int64_t> times_;                       // of the stamped packets of a datagram
    std::multimap<std::int64_t, Sample> held_;              // by time
    std::deque<std::pair<Arrival, std::int64_t>> arrivals_; // of the held, in their order
    std::int64_t due_ns_; // samples up to this time have been held long enough
    std::size_t heldBytes_ = 0;
    Arrival lastTake_;
    std::uint64_t overflows_ = 0;
    Delays delays_;
};

} // namespace task
