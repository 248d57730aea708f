#pragma once
// Looks at the sample time of every value: for jumps, more than a second from one value to the
// next, and for values that have none, since no timestamp came before them.

#include "host/standin/variable_store.h"

#include <atomic>
#include <cstdint>
#include <ctime>
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

    // The worker's alone.
    void take(const halmor_standin::Variable& variable, const timespec& sampleTime);

    // Values without a sample time. Any thread.
    std::uint64_t untimed() const { return untimed_; }

    // After the worker has ended.
    std::uint64_t jumps() const { return jumps_; }
    const std::vector<Jump>& first_jumps() const { return first_; }

  private:
    timespec latest_{}; // {0, 0} until a timestamp has come
    std::atomic<std::uint64_t> untimed_ = 0;
    std::uint64_t jumps_ = 0;
    std::vector<Jump> first_;
};

} // namespace task
