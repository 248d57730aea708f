#pragma once
// What happens to a datagram between its source and the library: it is put into its place among
// others, counted, dumped, looked at, and handed over sample by sample.

#include "task/output/frame_dump.h"
#include "task/output/message_counter.h"
#include "task/output/packet_watch.h"
#include "task/output/sample_time_watch.h"
#include "task/output/slave_notices.h"
#include "task/output/timing_watch.h"
#include "task/sources/datagram_order.h"
#include "task/sources/datagram_source.h"
#include "task/sources/sample_order.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

namespace task {

// take() and begin_session() are for the source's thread; whoever controls the run may call the
// rest.
class Intake : public DatagramSink {
  public:
    // The library is configured. When the source can wait, a datagram waits until the worker has
    // room for it: the frame queue is unbounded, and a file may be larger than the memory. With a
    // dump, every DAQ packet goes into it. The watch is told of gaps. Neither is owned.
    // Datagrams, and samples of several lists, are held that long, to put them into order; `ends`
    // is the source's.
    Intake(bool sourceCanWait, FrameDump* dump, std::chrono::milliseconds hold,
           SampleTimeWatch& times, const std::vector<SampleEnd>& ends = {});

    // A pause between DAQ packets that is longer is a gap; before anything is taken.
    void allow_silence(std::chrono::nanoseconds silence) { silence_ = silence; }

    // Never throws, whatever the source: a datagram for which there is no memory is counted, the
    // first one is reported, and the next one has its chance.
    void take(std::span<const std::uint8_t> payload, Arrival arrival) noexcept override;

    void begin_session(std::string_view why) noexcept override;

    // Lets go what has been held long enough; from time to time.
    void advance();

    // Lets go all of it; after the source has ended.
    void flush();

    // From now on nothing waits for the worker, which may have ended.
    void stop_waiting() { waits_ = false; }

    MessageCounts counts() const { return counter_.counts(); }
    const PacketWatch& packets() const { return packets_; }
    std::uint64_t failures() const { return failures_; } // datagrams that were not taken

    SampleOrder::Counts order() const { return samples_.counts(); }
    TimingWatch timing() const { return samples_.timing(); }
    std::uint64_t put_right() const { return datagrams_.put_right(); } // datagrams

    SlaveNotices& notices() { return notices_; }
    const SlaveNotices& notices() const { return notices_; }

    // How often the slave has begun anew by itself, as CTR and clock show.
    std::uint64_t restarts() const { return restarts_; }

  private:
    template <class Act>
    void attempt(const Act& act) noexcept;
    void hand_over(std::span<const std::uint8_t> payload, Arrival arrival);
    bool begins_anew(std::span<const std::uint8_t> payload, Arrival arrival) const;
    void look_for_silence(Arrival arrival);
    void break_off(std::string_view why);
    void wait_for_worker(std::size_t frames) const;

    const bool sourceCanWait_;
    FrameDump* const dump_;
    SampleTimeWatch& times_;

    std::mutex mutex_; // of taking datagrams
    MessageCounter counter_;
    SlaveNotices notices_;
    PacketWatch packets_; // reads the measurement table before the order adds to it
    SampleOrder samples_;
    DatagramOrder datagrams_;
    std::optional<Arrival> lastDaq_; // in this session
    std::chrono::nanoseconds silence_{std::chrono::nanoseconds::max()};

    std::atomic<std::uint64_t> failures_ = 0;
    std::atomic<std::uint64_t> restarts_ = 0;
    std::atomic<bool> waits_ = true;
};

} // namespace task
