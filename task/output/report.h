#pragma once
// What a run says on standard output: a line a second, and the closing table with the counts.

#include "limit_watch.h"
#include "message_counter.h"
#include "packet_watch.h"
#include "sample_time_watch.h"
#include "slave_notices.h"
#include "task/sources/datagram_source.h"
#include "task/sources/sample_order.h"
#include "timing_watch.h"

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
    std::uint64_t putRight = 0; // datagrams that were
    std::uint64_t gaps = 0;     // in which the slave was away
    SlaveNotices::Counts notices;
    std::string state;    // what keeps datagrams from coming; empty while nothing does
    double seconds = 0.0; // since the start
    double silence = 0.0; // seconds without a DAQ packet, up to the end
};

// What a line shows only once there is something: datagrams that were refused, the first thing to
// look for when nothing comes, and the word "misfit", when what comes does not fit the table.
std::string remarks(const RunCounts& counts);

// `before` is what the previous line showed.
std::string progress_line(const RunCounts& now, const RunCounts& before);

// Every variable of the store, and the measurements that no variable takes.
std::string variable_table();

// What is known at the end beside the counts.
struct Findings {
    const SampleTimeWatch& times;
    const PacketWatch& packets;
    const LimitWatch& limits;
    const TimingWatch& timing;
    std::vector<DatagramSource::ListInfo> lists; // empty when they are not known
    std::vector<std::string> notes;
    std::vector<std::string> doubts; // of the source
};

std::string closing_counts(const RunCounts& counts, const Findings& findings);

// What speaks against the run, a line each; empty when it can be trusted.
std::vector<std::string> doubts(const RunCounts& counts, const Findings& findings);

std::string trust_text(const std::vector<std::string>& doubts);

} // namespace task
