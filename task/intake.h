#pragma once
// What happens to a datagram between its source and the library: it is counted, dumped, looked at,
// and handed over.

#include "task/output/frame_dump.h"
#include "task/output/message_counter.h"
#include "task/output/packet_watch.h"
#include "task/sources/datagram_source.h"
#include "task/sources/sample_order.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>

namespace task {

// take() is for the source's thread; whoever controls the run may call the rest.
class Intake : public DatagramSink {
  public:
    // The library is configured. When the source can wait, a datagram waits until the worker has
    // room for it: the frame queue is unbounded, and a file may be larger than the memory. With a
    // dump, every DAQ packet goes into it; not owned.
    // Samples of several lists are held that long, to put them into order.
    Intake(bool sourceCanWait, FrameDump* dump, std::chrono::milliseconds hold);

    // Never throws, whatever the source: a datagram for which there is no memory is counted, the
    // first one is reported, and the next one has its chance.
    void take(std::span<const std::uint8_t> payload, Arrival arrival) noexcept override;

    void begin_session(Arrival arrival) noexcept override;

    // Lets go the samples that have been held long enough; from time to time.
    void advance();

    // Lets go all of them; after the source has ended.
    void flush() { order_.flush(); }

    // From now on nothing waits for the worker, which may have ended.
    void stop_waiting() { waits_ = false; }

    MessageCounts counts() const { return counter_.counts(); }
    SampleOrder::Counts order() const { return order_.counts(); }
    const PacketWatch& packets() const { return packets_; }
    std::uint64_t failures() const { return failures_; } // datagrams that were not taken

  private:
    template <class Act>
    void attempt(const Act& act) noexcept;
    void hand_over(std::span<const std::uint8_t> payload, Arrival arrival);
    void wait_for_worker() const;

    const bool sourceCanWait_;
    FrameDump* const dump_;
    SampleOrder order_; // before the library
    MessageCounter counter_;
    PacketWatch packets_;
    std::atomic<std::uint64_t> failures_ = 0;
    std::atomic<bool> waits_ = true;
};

} // namespace task
