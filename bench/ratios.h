#pragma once
// Runs the benchmarks and makes the table of ratios. Each benchmark has a floor, measured in the
// same run and alternating with it; of each the least time of its repetitions counts, or, where
// threads work together, the median.

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

namespace bench {

// Seconds that one batch of work took.
using Batch = std::function<double()>;

// Sets up what the batches need: tables, threads, sockets. It lives as long as the batch does.
using Prepare = std::function<Batch()>;

// What a row of the table compares.
struct Row {
    std::string benchmark;
    std::string title;
    std::string reach;      // in words
    bool threads = false;   // more than one works
    bool rate = false;      // compare packets per second instead of times
    double linkSeconds = 0; // an item's time on a saturated 1 Gbit/s link; 0: not shown
};

// Adds one variant ("library", "floor", "array", "read") of a row; a batch has `items` items.
// Batches are repeated until the time is long enough, or, when `once` is set, not at all.
void add(const Row& row, const std::string& variant, std::size_t items, Prepare prepare,
         bool once = false);

inline double seconds_of(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Each adds the rows of one file.
void add_decode();
void add_frame_path();
void add_network();
void add_growth();
void add_allocator();
void add_output();
void add_form();
void add_a2l();
void add_values();

} // namespace bench
