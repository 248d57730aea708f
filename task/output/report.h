#pragma once
// What a run says on standard output: a line a second, and the closing table with the counts.

#include "message_counter.h"
#include "packet_watch.h"
#include "sample_time_watch.h"
#include "task/sources/datagram_source.h"
#include "task/sources/sample_order.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace task {

struct RunCounts {
    MessageCounts messages;
    DatagramSource::Losses losses;
    std::uint64_t failures = 0; // datagrams for which there was no memory
    std::uint64_t values = 0;   // written into variables
    std::uint64_t untimed = 0;  // of them, without a sample time
    std::size_t waiting = 0;    // frames in the library's queue
    bool misfits = false;       // packets that the measurement table does not lay out
    SampleOrder::Counts order;  // samples that were put into order
    double seconds = 0.0;       // since the start
    double silence = 0.0;       // seconds without a DAQ packet, up to the end
};

// What a line shows only once there is something: datagrams that were refused, the first thing to
// look for when nothing comes, and the word "misfit", when what comes does not fit the table.
std::string remarks(const RunCounts& counts);

// `before` is what the previous line showed.
std::string progress_line(const RunCounts& now, const RunCounts& before);

// Every variable of the store, and the measurements that no variable takes.
std::string variable_table();

std::string closing_counts(const RunCounts& counts);

// What speaks against the run, a line each; empty when it can be trusted.
std::vector<std::string> doubts(const RunCounts& counts, const SampleTimeWatch& times,
                                const PacketWatch& packets);

std::string trust_text(const std::vector<std::string>& doubts);

} // namespace task
