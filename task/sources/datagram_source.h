#pragma once
// Where the datagrams of a run come from.

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace task {

// When a datagram came: by the steady clock or, out of a file, by the clock that it was recorded
// with. Only differences count. The clock's beginning where it is not known.
using Arrival = std::chrono::steady_clock::time_point;

// Payload of whole messages, valid during the call.
using PayloadSink = std::function<void(const std::uint8_t*, std::uint64_t)>;

// An ODT with which a sample of its DAQ list ends.
struct SampleEnd {
    std::uint8_t list;
    std::uint8_t odt;
};

// Where datagrams go. One thread's at a time; it outlives the source's thread.
class DatagramSink {
  public:
    virtual ~DatagramSink() = default;

    // Payload of one datagram, valid during the call.
    virtual void take(std::span<const std::uint8_t> payload, Arrival arrival) noexcept = 0;

    // What follows belongs to another session: the slave's CTR and its clock have begun anew. Says
    // why the slave was away; nothing when the session before was over.
    virtual void begin_session(std::string_view why) noexcept = 0;
};

class DatagramSource {
  public:
    virtual ~DatagramSource() = default;

    // Begins to hand datagrams to the sink, on one thread of the source's own.
    virtual void start(DatagramSink& sink) = 0;

    // After start(): where the datagrams come from, in a few words.
    virtual std::string description() const = 0;

    // Where samples end beside the last ODTs of the measurement table: only what is laid out in
    // several ways, one after the other, has such ODTs.
    virtual std::vector<SampleEnd> sample_ends() const { return {}; }

    // Whether the sink may take its time: a file can wait, a slave cannot.
    virtual bool can_wait() const = 0;

    // Whether nothing more will come by itself: the end of a file, or an error.
    virtual bool ended() const = 0;

    // Hands on what has arrived, then ends the thread. A sink that waits must have been told to
    // stop before.
    virtual void stop() = 0;

    // After stop(): what speaks against the run, a line each.
    virtual std::vector<std::string> doubts() const { return {}; }

    // After stop(): throws Failure or io::FileError when the source had failed.
    virtual void check() const = 0;

    // What did not reach the sink.
    struct Losses {
        std::uint64_t kernelDrops = 0;
        std::uint64_t foreign = 0;   // from another address or port, or not UDP at all
        std::uint64_t overloads = 0; // packets by which the slave told that it lost samples
        std::uint64_t untold = 0;    // samples whose short timestamp does not tell their time
    };
    virtual Losses losses() const = 0;

    // What keeps it from handing on datagrams, in a few words; empty while nothing does.
    virtual std::string state() const { return ""; }

    // The slave seems to have begun anew.
    virtual void doubt_session() {}

    // By DAQ list, what is known of it before start(); empty when somebody else has set it up.
    struct ListInfo {
        std::string name;
        std::uint64_t cycle_ns; // 0: not cyclic, or not known
    };
    virtual std::vector<ListInfo> lists() const { return {}; }

    // What is to be known of the run, a line each.
    virtual std::vector<std::string> notes() const { return {}; }

    // After stop(), when all that was handed on has been decoded: a line for each variable that has
    // not got what the source knows it has sent. Most sources know nothing.
    virtual std::vector<std::string> missing_values() const { return {}; }
};

} // namespace task
