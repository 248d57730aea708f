#pragma once
// --record: every value with its sample time into a file.

#include "host/standin/variable_store.h"

#include <array>
#include <cstddef>
#include <cstdint>
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

constexpr std::int64_t second_ns = 1'000'000'000;

// Kept small: what it takes to hand a value over is the time to move its bytes between two caches.
struct RecordedValue {
    std::int64_t time; // nanoseconds since 1970
    double value;
    std::uint32_t column; // the variable's number, or one of the two below

    RecordedValue() = default;
    RecordedValue(std::size_t number, double of, const timespec& at)
        : time(at.tv_sec * second_ns + at.tv_nsec), value(of),
          column(static_cast<std::uint32_t>(number)) {}
};

// A gap is two items, one right after the other.
constexpr std::uint32_t gap_end = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t gap_begin = gap_end - 1;

inline std::array<RecordedValue, 2> gap_items(const timespec& from, const timespec& to) {
    return {RecordedValue(gap_begin, 0, from), RecordedValue(gap_end, 0, to)};
}

} // namespace task
