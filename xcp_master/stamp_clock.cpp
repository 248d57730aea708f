#include "stamp_clock.h"

#include <cmath>

namespace xcp_master {

namespace {

constexpr double longest_pause = 4; // turns that a host's clock can count

} // namespace

StampClock::StampClock(const DaqProperties& slave)
    : unit_ps_(slave.unit_ps), ticksPerUnit_(slave.ticksPerUnit),
      turn_(std::int64_t{1} << 8 * slave.timestampSize) {}

double StampClock::ticks_between(Time from, Time to) const {
    return static_cast<double>((to - from).count()) * 1000 / static_cast<double>(unit_ps_) *
           static_cast<double>(ticksPerUnit_);
}

// A unit is a power of ten.
std::uint64_t StampClock::nanoseconds(std::uint64_t ticks) const {
    const std::uint64_t units = ticks / ticksPerUnit_;
    const std::uint64_t rest = ticks % ticksPerUnit_;
    if (const std::uint64_t unit_ns = unit_ps_ / 1000; unit_ns > 0)
        return units * unit_ns + rest * unit_ns / ticksPerUnit_;
    return (units * unit_ps_ + rest * unit_ps_ / ticksPerUnit_) / 1000;
}

std::uint64_t StampClock::time_ns(std::uint8_t list, std::uint64_t stamp, Time arrival) {
    std::optional<Last>& last = lists_[list];
    Last now{static_cast<std::int64_t>(stamp) + turn_, arrival}; // another may have been earlier
    if (last && ticks_between(last->arrival, arrival) < static_cast<double>(turn_)) {
        now.ticks = last->ticks + ((now.ticks - last->ticks) & (turn_ - 1));
    } else if (latest_) {
        now.ticks = by_arrival(now.ticks, arrival);
        while (last && now.ticks < last->ticks)
            now.ticks += turn_;
    }
    check_lag(now);
    last = now;
    latest_ = now;
    return nanoseconds(static_cast<std::uint64_t>(now.ticks));
}

// The time of the stamp that is nearest to when the sample came, seen from the latest one.
std::int64_t StampClock::by_arrival(std::int64_t stamp, Time arrival) {
    const double pause = ticks_between(latest_->arrival, arrival);
    const std::int64_t expected = latest_->ticks + std::llround(pause);
    const std::int64_t behind = (expected - stamp) & (turn_ - 1);
    const std::int64_t off = behind <= turn_ / 2 ? -behind : turn_ - behind;
    if (std::abs(off) > turn_ / 4 || pause > longest_pause * static_cast<double>(turn_))
        note_untold();
    return expected + off;
}

// A sample that seems to have been on its way for a whole turn longer than others may be a turn
// later, and one that seems to come before it was taken a turn earlier. What counts as the shortest
// way grows with the clocks' drift.
void StampClock::check_lag(const Last& now) {
    constexpr double drift = 1e-3;
    if (!least_)
        least_ = now;
    const double passed = ticks_between(least_->arrival, now.arrival);
    const double lag = passed - static_cast<double>(now.ticks - least_->ticks);
    const double tolerance = std::abs(passed) * drift;
    if (lag >= static_cast<double>(turn_) + tolerance || lag < -static_cast<double>(turn_) / 2)
        note_untold();
    if (lag <= tolerance)
        least_ = now;
}

} // namespace xcp_master
