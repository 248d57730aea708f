#pragma once
// Looks at the sample time of every value: for jumps from one value to the next, for gaps that are
// known of, and for values that have no time, since no timestamp came before them.

#include "host/standin/variable_store.h"

#include <atomic>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

namespace task {

class SampleTimeWatch {
  public:
    struct Jump {
        std::string variable; // the first one that was written after it
        timespec from;
        timespec to;
    };
    struct Gap {
        timespec from; // of the last sample before it
        timespec to;   // of the first one after it
        std::string why;
    };

    // More than that, in nanoseconds, is a jump; before anything is written.
    void allow_step(std::int64_t step_ns) { step_ns_ = step_ns; }

    // The next value comes after a gap; in good order when nothing is wrong with it. Any thread.
    void expect_gap(std::string why, bool inOrder = false);

    // The worker's alone. Gives the gap that ends with this value; null otherwise.
    const Gap* take(const halmor_standin::Variable& variable, const timespec& sampleTime);

    // Values without a sample time, and gaps that have ended but for those in good order. Any
    // thread.
    std::uint64_t untimed() const { return untimed_; }
    std::uint64_t gaps() const { return gaps_; }

    // After the worker has ended.
    std::uint64_t jumps() const { return jumps_; }
    const std::vector<Jump>& first_jumps() const { return first_; }
    const std::vector<Gap>& first_gaps() const { return firstGaps_; }

  private:
    const Gap* end_gap(const timespec& sampleTime);

    std::int64_t step_ns_ = 1'000'000'000;
    timespec latest_{}; // {0, 0} until a timestamp has come
    std::atomic<std::uint64_t> untimed_ = 0;
    std::uint64_t jumps_ = 0;
    std::vector<Jump> first_;

    std::atomic<std::uint64_t> gaps_ = 0;
    std::atomic<bool> gapEnds_ = false; // with the next value
    std::mutex mutex_;
    bool inOrder_ = false;
    Gap gap_; // guarded by mutex_ until it has ended
    std::vector<Gap> firstGaps_;
};

} // namespace task
