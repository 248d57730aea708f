#pragma once
// --record: every value with its sample time into a file.

#include "host/standin/variable_store.h"

#include <array>
#include <cstddef>
#include <ctime>
#include <limits>

namespace task {

class Recorder {
  public:
    virtual ~Recorder() = default;

    // Takes one value; the worker's alone.
    virtual void take(const halmor_standin::Variable& variable, double value,
                      const timespec& sampleTime) = 0;

    // The slave sampled nothing between these sample times; the worker's alone, before the first
    // value after the gap.
    virtual void gap(const timespec& from, const timespec& to) = 0;

    // Writes what is left; after the worker has ended. Throws io::FileError when anything was not
    // written.
    virtual void close() = 0;
};

// ---- for who implements it: what the worker hands to the writer's thread ----

struct RecordedValue {
    std::size_t column; // the variable's number, or one of the two below
    double value;
    timespec time;
};

// A gap is two items, one right after the other.
constexpr std::size_t gap_end = std::numeric_limits<std::size_t>::max();
constexpr std::size_t gap_begin = gap_end - 1;

inline std::array<RecordedValue, 2> gap_items(const timespec& from, const timespec& to) {
    return {{{gap_begin, 0, from}, {gap_end, 0, to}}};
}

inline bool same_time(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

} // namespace task
