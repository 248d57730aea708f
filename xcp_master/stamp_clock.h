#pragma once
// The time of timestamps that turn too often to be left as they are, or whose ticks are no whole
// nanoseconds: counted on across their turns.

#include "command_channel.h"
#include "slave_properties.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>

namespace xcp_master {

class StampClock {
  public:
    // For a slave with timestamps.
    explicit StampClock(const DaqProperties& slave);

    // The timestamp of a sample as nanoseconds that do not turn, from the turn of the first one on.
    // Within a turn the stamps of a list tell by themselves; after a longer pause, and for the
    // first one of a list, the time of arrival does. `list` is below 256. One thread's.
    std::uint64_t time_ns(std::uint8_t list, std::uint64_t stamp, Time arrival);

    // Samples for which neither told how often the timestamp had turned. Any thread.
    std::uint64_t untold() const { return untold_; }

  private:
    struct Last { // of a list
        std::int64_t ticks;
        Time arrival;
    };

    double ticks_between(Time from, Time to) const;
    std::uint64_t nanoseconds(std::uint64_t ticks) const;
    std::int64_t by_arrival(std::int64_t stamp, Time arrival);
    void check_lag(const Last& now);
    void note_untold() { untold_.store(untold_ + 1, std::memory_order_relaxed); }

    const std::uint64_t unit_ps_;
    const std::uint64_t ticksPerUnit_;
    const std::int64_t turn_; // ticks
    std::array<std::optional<Last>, 256> lists_;
    std::optional<Last> latest_; // of any list
    std::optional<Last> least_;  // the sample that was on its way for the shortest time
    std::atomic<std::uint64_t> untold_ = 0;
};

} // namespace xcp_master
