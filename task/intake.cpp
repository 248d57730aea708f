#include "intake.h"

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>

namespace task {

using namespace std::chrono_literals;

Intake::Intake(bool sourceCanWait, FrameDump* dump, std::chrono::milliseconds hold,
               SampleTimeWatch& times, const std::vector<SampleEnd>& ends)
    : sourceCanWait_(sourceCanWait), dump_(dump), times_(times),
      samples_(hold, api_xcp_daq_push_frame, ends),
      datagrams_(hold, [this](std::span<const std::uint8_t> payload, Arrival arrival) {
          hand_over(payload, arrival);
      }) {}

void Intake::take(std::span<const std::uint8_t> payload, Arrival arrival) noexcept {
    constexpr std::size_t most_frames = 10'000;
    if (sourceCanWait_)
        wait_for_worker(most_frames);
    const std::lock_guard lock(mutex_);
    attempt([&] { datagrams_.take(payload, arrival); });
}

void Intake::begin_session(std::string_view why) noexcept {
    const std::lock_guard lock(mutex_);
    attempt([&] {
        datagrams_.flush();
        break_off(why);
    });
}

// What has gone to the library is decoded first: the gap lies behind it.
void Intake::break_off(std::string_view why) {
    samples_.begin_session();
    wait_for_worker(0);
    counter_.begin_session();
    lastDaq_.reset();
    times_.expect_gap(std::string(why), why.empty());
}

// The time of what comes out of a file is not the time of this moment. While a datagram is being
// taken there is nothing to let go, and the taking may wait for this thread.
void Intake::advance() {
    attempt([&] { samples_.keep_alive(); });
    const std::unique_lock lock(mutex_, std::try_to_lock);
    if (sourceCanWait_ || !lock)
        return;
    attempt([&] {
        datagrams_.advance(std::chrono::steady_clock::now());
        samples_.advance(std::chrono::steady_clock::now());
    });
}

void Intake::flush() {
    const std::lock_guard lock(mutex_);
    attempt([&] {
        datagrams_.flush();
        samples_.flush();
    });
}

template <class Act>
void Intake::attempt(const Act& act) noexcept {
    try {
        act();
    } catch (const std::exception& error) {
        if (failures_++ == 0) // without allocating: memory may be what is missing
            std::fprintf(stderr, "xcp_daq_task: a datagram was not taken: %s\n", error.what());
    }
}

void Intake::hand_over(std::span<const std::uint8_t> payload, Arrival arrival) {
    if (begins_anew(payload, arrival)) {
        ++restarts_;
        break_off("the slave's CTR and its clock began anew");
    }
    if (counter_.take(payload) > 0)
        look_for_silence(arrival);
    notices_.take(payload);
    if (dump_ != nullptr)
        dump_->take(payload);
    packets_.take(payload, [&](const std::uint8_t* data, std::uint64_t length) {
        samples_.take({data, length}, arrival);
    });
}

// The slave, or the way to it, was away, and the session has outlived it.
void Intake::look_for_silence(Arrival arrival) {
    if (lastDaq_ && arrival - *lastDaq_ > silence_) {
        wait_for_worker(0);
        times_.expect_gap("nothing came from the slave");
    }
    lastDaq_ = arrival;
}

// Lost messages leave the slave's clock where it is. When only a few are lost or late, others may
// have waited for a busy host as well.
bool Intake::begins_anew(std::span<const std::uint8_t> payload, Arrival arrival) const {
    constexpr int few = 4096;
    const auto skipped = static_cast<std::int16_t>(counter_.skipped_before(payload));
    return skipped != 0 &&
           samples_.off_by(payload, arrival) > (std::abs(skipped) < few ? 1s : 100ms);
}

// Until no more are in its queue.
void Intake::wait_for_worker(std::size_t frames) const {
    while (waits_ && XCPFrameBuffer.size() > frames)
        std::this_thread::sleep_for(1ms);
    if (frames == 0)
        std::this_thread::sleep_for(1ms); // the last one is out of the queue before it is decoded
}

} // namespace task
