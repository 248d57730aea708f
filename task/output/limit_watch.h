#pragma once
// Counts the values outside of a variable's plausible range. Nothing is clipped to it: such ranges
// are often rougher than what a sensor gives.

#include "host/standin/variable_store.h"

#include <cstdint>
#include <ctime>
#include <limits>
#include <map>
#include <string>
#include <vector>

namespace task {

struct PlausibleRange {
    double lower;
    double upper;
};
using PlausibleRanges = std::map<std::string, PlausibleRange>; // by variable

class LimitWatch {
  public:
    // The store's variables stay as they are from here on.
    explicit LimitWatch(const PlausibleRanges& ranges);

    // The worker's alone.
    void take(const halmor_standin::Variable& variable, double value, const timespec& sampleTime) {
        Range& range = ranges_[variable.number()];
        if (value < range.lower || value > range.upper)
            note(range, value, sampleTime);
    }

    // A line for each variable that left its range; after the worker has ended.
    std::vector<std::string> lines() const;

  private:
    struct Range {
        double lower = -std::numeric_limits<double>::infinity();
        double upper = std::numeric_limits<double>::infinity();
        std::uint64_t outside = 0;
        timespec first{};
        double least = std::numeric_limits<double>::infinity(); // of those outside
        double greatest = -std::numeric_limits<double>::infinity();
    };
    static void note(Range& range, double value, const timespec& sampleTime);

    std::vector<Range> ranges_; // by the variable's number
};

} // namespace task
