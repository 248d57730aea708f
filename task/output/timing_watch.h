#pragma once
// Looks at when samples were taken and when they came: how many of each list, and how the slave's
// clock runs against the host's.

#include "task/sources/datagram_source.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace task {

// One thread's at a time.
class TimingWatch {
  public:
    static constexpr std::size_t most_lists = 4;

    // A sample of a list: its time in nanoseconds, and when it came.
    void take(std::size_t list, std::int64_t time_ns, Arrival arrival);
    void begin_session();

    std::array<std::uint64_t, most_lists> samples() const { return samples_; } // by list

    // From the first to the last sample of any list, in each session, in all; by the host's clock
    // when the slave's had jumped.
    struct Spans {
        std::int64_t nanoseconds = 0;
        std::uint64_t sessions = 0;
    };
    Spans spans() const;

    struct Clocks {
        double seconds = 0.0;     // that were compared
        double drift_ppm = 0.0;   // how much faster the slave's clock runs
        std::uint64_t jumps = 0;  // of the one against the other
        double largestJump = 0.0; // seconds
    };
    Clocks clocks() const;

  private:
    struct Ends {
        std::int64_t first_ns;
        std::int64_t last_ns;
        Arrival firstArrival;
        Arrival lastArrival;

        std::int64_t span_ns() const;
    };

    // Of the samples of a second, the one that was on its way for the shortest time.
    struct Window {
        Arrival begin;
        Arrival arrival;
        std::int64_t ahead_ns; // the slave's time before the host's
    };

    // Least squares, about the session's first window.
    struct Regression {
        double n = 0, x = 0, y = 0, xx = 0, xy = 0;
        double sum_xx() const { return n == 0 ? 0 : xx - x * x / n; }
        double sum_xy() const { return n == 0 ? 0 : xy - x * y / n; }
    };

    void compare_clocks(std::int64_t time_ns, Arrival arrival);
    void close_window();
    void close_session();

    std::array<std::uint64_t, most_lists> samples_{};
    std::optional<Ends> ends_; // of this session
    Spans spans_;              // of the sessions before
    std::optional<Window> window_, firstWindow_, lastWindow_;
    Regression regression_;        // of this session
    double sumXX_ = 0, sumXY_ = 0; // of the sessions before
    Clocks clocks_;
};

} // namespace task
