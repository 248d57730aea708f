#include "api_xcp_daq.h"

namespace {

constexpr int realtime_clock = 5;
constexpr std::int64_t second_nsec = 1000000000;
constexpr std::int64_t longest_gap_sec = 3;

bool is_zero(const timespec& time) {
    return time.tv_sec == 0 && time.tv_nsec == 0;
}

void add_nanoseconds(timespec& time, std::int64_t nanoseconds) {
    time.tv_nsec += nanoseconds;
    while (time.tv_nsec >= second_nsec) {
        time.tv_nsec -= second_nsec;
        ++time.tv_sec;
    }
}

} // namespace

std::int64_t calculate_rollover(std::uint32_t timestamp, std::uint32_t* lastTimestamp,
                                timespec* corrected, timespec* base) {
    static timespec lastSampleTime{};
    static bool firstTime = true;

    timespec now{};
    SrrClockGettime(realtime_clock, &now);
    if (lastSampleTime.tv_sec == 0)
        lastSampleTime = now;

    // The first timestamp of the process stands for `base`; only differences count after it.
    const bool anchor = firstTime && base != nullptr && *lastTimestamp == 0 && is_zero(*corrected);
    firstTime = false;

    std::int64_t delta = static_cast<std::int64_t>(timestamp) - *lastTimestamp;
    std::int64_t carried = 0;
    if (delta < 0) {
        // A wrap counts one tick less than the counter moved: its maximum, not 2^32.
        delta += static_cast<std::int64_t>(MAX_TIME_DAQ_COUNT_VALUE);
        carried = delta / second_nsec;
        delta %= second_nsec;
        corrected->tv_sec += carried;
    }
    std::int64_t result = delta;

    std::int64_t gapSec = now.tv_sec - lastSampleTime.tv_sec;
    std::int64_t gapNsec = now.tv_nsec - lastSampleTime.tv_nsec;
    if (gapSec > longest_gap_sec) {
        if (gapNsec < 0) {
            --gapSec;
            gapNsec += second_nsec;
        }
        if (gapSec > carried) {
            *corrected = now;
            result = gapSec * second_nsec + gapNsec;
            delta = 0;
        }
    }

    add_nanoseconds(*corrected, delta);
    if (anchor)
        *corrected = *base;
    *lastTimestamp = timestamp;
    lastSampleTime = now;
    return result;
}
