#pragma once
// What a run says on standard output: a line a second, and the closing table with the counts.

#include "datagram_source.h"
#include "message_counter.h"
#include "sample_time_watch.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace task {

struct RunCounts {
    MessageCounts messages;
    DatagramSource::Losses losses;
    std::uint64_t values = 0; // written into variables
    std::size_t waiting = 0;  // frames in the library's queue
    double seconds = 0.0;     // since the start
};

// What was refused, once there is something: a slave at another address is the first thing to look
// for when nothing comes.
std::string foreign_text(const RunCounts& counts);

// `before` is what the previous line showed.
std::string progress_line(const RunCounts& now, const RunCounts& before);

// Every variable of the store, and the measurements that no variable takes.
std::string variable_table();

std::string closing_counts(const RunCounts& counts);

// Whether anything was lost on the way: what --strict asks for.
bool anything_lost(const RunCounts& counts);

// Whether the run can be trusted, and what speaks against it.
std::string trust_text(const RunCounts& counts, const SampleTimeWatch& watch);

} // namespace task
