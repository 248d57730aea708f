#include "intake.h"

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <thread>

namespace task {

Intake::Intake(bool sourceCanWait, FrameDump* dump, std::chrono::milliseconds hold)
    : sourceCanWait_(sourceCanWait), dump_(dump), order_(hold, api_xcp_daq_push_frame) {}

void Intake::take(std::span<const std::uint8_t> payload, Arrival arrival) noexcept {
    if (sourceCanWait_)
        wait_for_worker();
    attempt([&] { hand_over(payload, arrival); });
}

void Intake::begin_session(Arrival) noexcept {
    counter_.begin_session();
    attempt([&] { order_.begin_session(); });
}

// The time of what comes out of a file is not the time of this moment.
void Intake::advance() {
    if (!sourceCanWait_)
        order_.advance(SampleOrder::Clock::now());
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
    counter_.take(payload);
    if (dump_ != nullptr)
        dump_->take(payload);
    packets_.take(payload, [&](const std::uint8_t* data, std::uint64_t length) {
        order_.take({data, length}, arrival);
    });
}

void Intake::wait_for_worker() const {
    constexpr std::size_t frames = 10'000;
    while (waits_ && XCPFrameBuffer.size() > frames)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

} // namespace task
