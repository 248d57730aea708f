// The worker's life.

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "host_double.h"
#include "table.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

using namespace std::chrono_literals;
using host_double::host;
using table::Bytes;

namespace {

class Worker : public testing::Test {
  protected:
    api_xcp_daq object;

    Worker() {
        host().define("v", host_double::real);
        table::add_plain("v", 0, 0, 0, 1, MODE_TIMESTAMP);
    }
    ~Worker() override { object.stopWorkerThreads(); }

    static void push(std::uint8_t value) {
        const Bytes payload = table::datagram({{0, 0, value}});
        api_xcp_daq_push_frame(payload.data(), payload.size());
    }
    static void push_stamped(std::uint8_t value) {
        const Bytes payload = table::datagram({{0, 0, 1, 0, 0, 0, value}});
        api_xcp_daq_push_frame(payload.data(), payload.size());
    }
    // All frames so far have been taken, and the worker is through with them.
    void drain() {
        while (XCPFrameBuffer.size() > 0)
            std::this_thread::yield();
        object.stopWorkerThreads();
    }
};

TEST_F(Worker, DecodesWhileEnabled) {
    object.startWorkerThreads();
    api_xcp_daq::enableDAQProcessing();
    push(1);
    push(2);
    const auto writes = host().await_writes(2);
    ASSERT_EQ(writes.size(), 2U);
    EXPECT_EQ(writes[0].value + 10 * writes[1].value, 21);
    object.stopWorkerThreads();
    EXPECT_EQ(host().calls, std::vector<std::string>{"setprio 0 22"});
}

TEST_F(Worker, DiscardsFramesWhileDisabled) {
    push(1);
    object.startWorkerThreads();
    drain();
    api_xcp_daq::enableDAQProcessing();
    object.startWorkerThreads();
    push(2);
    EXPECT_EQ(host().await_writes(1).at(0).value, 2);
    api_xcp_daq::disableDAQProcessing();
    push(3);
    drain();
    EXPECT_EQ(host().writes().size(), 1U);
}

using Time = std::pair<time_t, long>;

Time now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return {time.tv_sec, time.tv_nsec};
}

TEST_F(Worker, TheFirstFrameAfterAStartSetsTheBaseEvenWhileDisabled) {
    object.startWorkerThreads();
    push(1);
    drain();
    const Time start = now();
    object.startWorkerThreads();
    push(1);
    push(1); // once this one is taken, the first has been dealt with
    while (XCPFrameBuffer.size() > 0)
        std::this_thread::yield();
    const Time firstFrameDone = now();
    api_xcp_daq::enableDAQProcessing();
    push_stamped(2);
    const timespec base = host().await_writes(1).at(0).sampleTime;
    EXPECT_GE(Time(base.tv_sec, base.tv_nsec), start) << "each start stamps afresh";
    EXPECT_LE(Time(base.tv_sec, base.tv_nsec), firstFrameDone);
}

TEST_F(Worker, OneWorkerAtATimeBelongsToTheObjectThatStartedIt) {
    api_xcp_daq other;
    other.stopWorkerThreads();
    EXPECT_EQ(frameThreadStopped, 0) << "a stop without a worker changes nothing";
    object.startWorkerThreads();
    object.startWorkerThreads();
    other.startWorkerThreads();
    other.stopWorkerThreads();
    EXPECT_EQ(frameThreadStopped, 0);
    api_xcp_daq::enableDAQProcessing();
    push(1);
    EXPECT_EQ(host().await_writes(1).size(), 1U);
    object.stopWorkerThreads();
    object.stopWorkerThreads();
    EXPECT_EQ(host().calls.size(), 1U);
    other.startWorkerThreads();
    push(2);
    EXPECT_EQ(host().await_writes(2).size(), 2U);
    other.stopWorkerThreads();
}

} // namespace
