#pragma once
// The slave's clock: ticks of its own unit, which wrap at the timestamp's size 1.5 s after the
// slave was switched on.

#include "a2l/a2l_file.h"

#include <cstdint>

namespace simulated_slave {

class Clock {
  public:
    explicit Clock(const a2l::Timestamp& timestamp) : timestamp_(timestamp) {}

    // The lower bytes are the timestamp. Times are in nanoseconds since the slave was switched on
    // for the first time.
    std::uint64_t ticks(std::uint64_t now_ns) const {
        constexpr std::uint64_t before_wrap_ns = 1'500'000'000;
        return ticks_of(now_ns - switchedOn_ns_ + ahead_ns_) - ticks_of(before_wrap_ns);
    }
    void jump() { ahead_ns_ += 2'000'000'000; }
    void switch_on(std::uint64_t now_ns) {
        switchedOn_ns_ = now_ns;
        ahead_ns_ = 0;
    }

  private:
    // TIMESTAMP_TICKS is how far the clock counts in one unit.
    std::uint64_t ticks_of(std::uint64_t time_ns) const {
        if (timestamp_.unit_ps < 1000)
            return time_ns * (1000 / timestamp_.unit_ps) * timestamp_.ticks;
        const std::uint64_t unit_ns = timestamp_.unit_ps / 1000;
        return time_ns / unit_ns * timestamp_.ticks +
               time_ns % unit_ns * timestamp_.ticks / unit_ns;
    }

    const a2l::Timestamp timestamp_;
    std::uint64_t switchedOn_ns_ = 0;
    std::uint64_t ahead_ns_ = 0;
};

} // namespace simulated_slave
