// From datagrams over the queue to the worker.

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "host_double.h"
#include "table.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <thread>

using namespace std::chrono_literals;
using host_double::host;
using host_double::Time;
using table::Bytes;
using table::datagram;

namespace {

// The payload in a buffer of exactly its size, so that the sanitizer sees every byte beyond it.
void push(const Bytes& payload) {
    const auto exact = std::make_unique<std::uint8_t[]>(payload.size());
    std::copy(payload.begin(), payload.end(), exact.get());
    api_xcp_daq_push_frame(exact.get(), payload.size());
}

std::vector<Bytes> queued() {
    std::vector<Bytes> frames;
    while (XCPFrameBuffer.size() > 0)
        frames.push_back(XCPFrameBuffer.wait_for_buffer(0ms));
    return frames;
}

// ---- ingestion ----

TEST(Ingestion, QueuesDaqPacketsAndReportsServiceRequests) {
    struct Case {
        Bytes payload;
        std::vector<Bytes> frames;
        std::string output;
    };
    const Case cases[] = {
        {{}, {}, ""},
        {{3, 0, 7, 7, 0, 0, 1, 2, 0, 8, 7, 0xBF, 3}, {{0, 0, 1}, {0xBF, 3}}, ""},
        {datagram({Bytes(258, 5)}), {Bytes(258, 5)}, ""},
        {datagram({{0xC0, 0}, {0xFB, 0}, {0xFD, 0}, {0xFE, 0}, {0xFF, 0}}), {}, ""},
        {datagram({{}, {1, 0}, {}, {}, {2}}), {{1, 0}, {2}}, ""},
        {datagram({{1, 0}, {0xFC, 0, 'x'}, {2, 0}, {0xFC, 1}, {0xFC, 2}, {0xFC}}),
         {{1, 0}, {2, 0}},
         "Service Request Reset \nServer Request Text \nServer Request Text \n"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(output_of([&] { push(c.payload); }), c.output);
        EXPECT_EQ(queued(), c.frames);
    }
    api_xcp_daq_push_frame(nullptr, 100);
    EXPECT_TRUE(queued().empty());
}

TEST(Ingestion, ACutOffMessageIsDroppedAndThoseBeforeItStay) {
    const Bytes whole = datagram({{1, 0, 5, 5}, {2, 0, 6, 6, 6}});
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        push(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        EXPECT_EQ(queued().size(), length == whole.size() ? 2U : length >= 8 ? 1U : 0U) << length;
    }
}

// ---- queue ----

TEST(FrameQueue, KeepsOrderAndAUnitForEachOfThousandsOfFrames) {
    constexpr std::uint16_t frames = 20000;
    const auto numbered = [](std::uint16_t number) {
        return Bytes{static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8)};
    };
    for (std::uint16_t i = 0; i < frames; ++i)
        XCPFrameBuffer.push(numbered(i));
    EXPECT_EQ(XCPFrameBuffer.size(), frames);
    int units = 0;
    while (XcpFrameBufferCount.try_acquire())
        ++units;
    EXPECT_EQ(units, frames);
    XcpFrameBufferCount.release(units);
    for (std::uint16_t i = 0; i < frames; ++i)
        ASSERT_EQ(XCPFrameBuffer.wait_for_buffer(0ms), numbered(i));
    EXPECT_FALSE(XcpFrameBufferCount.try_acquire());

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(XCPFrameBuffer.wait_for_buffer(50ms), EmptyFrameBuffer);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
}

// ---- worker ----

Time now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return {time.tv_sec, time.tv_nsec};
}

class Worker : public testing::Test {
  protected:
    api_xcp_daq object;

    Worker() {
        host().define("v", host_double::real);
        table::add_plain("v", 0, 0, 0, 1, MODE_TIMESTAMP);
    }
    ~Worker() override { object.stopWorkerThreads(); }

    static void push_value(std::uint8_t value) { push(datagram({{0, 0, value}})); }
    static void await_empty_queue() {
        while (XCPFrameBuffer.size() > 0)
            std::this_thread::yield();
    }
    static std::vector<double> values(std::size_t count) {
        std::vector<double> result;
        for (const auto& write : host().take_writes(count))
            result.push_back(write.value);
        return result;
    }
};

TEST_F(Worker, DecodesWhileEnabledAndDiscardsOtherwise) {
    push_value(1);
    object.startWorkerThreads();
    await_empty_queue();
    object.stopWorkerThreads();
    api_xcp_daq::enableDAQProcessing();
    object.startWorkerThreads();
    push_value(2);
    push_value(3);
    EXPECT_EQ(values(2), (std::vector<double>{2, 3}));
    api_xcp_daq::disableDAQProcessing();
    push_value(4);
    await_empty_queue();
    object.stopWorkerThreads();
    EXPECT_TRUE(host().take_writes().empty());
    const std::string start = "Transport_udp::instance\nsetprio 0 22\n";
    EXPECT_EQ(host().calls, start + start);
}

TEST_F(Worker, TheFirstFrameAfterAStartSetsTheBaseEvenWhileDisabled) {
    object.startWorkerThreads();
    push_value(1);
    await_empty_queue();
    object.stopWorkerThreads();
    const Time start = now();
    object.startWorkerThreads();
    push_value(1);
    push_value(1); // once this one is taken, the first has been dealt with
    await_empty_queue();
    const Time firstFrameDone = now();
    api_xcp_daq::enableDAQProcessing();
    push(datagram({{0, 0, 1, 0, 0, 0, 2}}));
    const Time base = host().take_writes(1).at(0).sampleTime;
    EXPECT_GE(base, start) << "each start stamps afresh";
    EXPECT_LE(base, firstFrameDone);
}

TEST_F(Worker, OneAtATimeBelongsToTheObjectThatStartedIt) {
    api_xcp_daq other;
    other.stopWorkerThreads();
    object.startWorkerThreads();
    object.startWorkerThreads();
    other.startWorkerThreads();
    other.stopWorkerThreads();
    EXPECT_EQ(frameThreadStopped, 0) << "the other object has no worker to stop";
    api_xcp_daq::enableDAQProcessing();
    push_value(1);
    EXPECT_EQ(values(1), std::vector<double>{1});
    object.stopWorkerThreads();
    object.stopWorkerThreads();
    EXPECT_EQ(std::count(host().calls.begin(), host().calls.end(), '\n'), 2);
    other.startWorkerThreads();
    push_value(2);
    EXPECT_EQ(values(1), std::vector<double>{2});
    other.stopWorkerThreads();
}

TEST_F(Worker, AnIdleOneEndsWithinAWait) {
    api_xcp_daq::enableDAQProcessing();
    std::chrono::steady_clock::duration longest{};
    for (int round = 0; round < 3; ++round) { // a stop may come just before the wait
        object.startWorkerThreads();
        push_value(1);
        EXPECT_EQ(values(1).size(), 1U);
        const auto stop = std::chrono::steady_clock::now();
        object.stopWorkerThreads();
        longest = std::max(longest, std::chrono::steady_clock::now() - stop);
    }
    EXPECT_LT(longest, 1s);
}

} // namespace
