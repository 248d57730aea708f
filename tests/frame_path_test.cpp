// From datagrams over the queue to the worker, and frames in files.

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "host_double.h"
#include "table.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>
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

TEST(Ingestion, QueuesDaqPacketsAndReportsServiceRequests) {
    const std::tuple<Bytes, std::vector<Bytes>, std::string> cases[] = {
        {Bytes{}, {}, ""},
        {{3, 0, 7, 7, 0, 0, 1, 2, 0, 8, 7, 0xBF, 3}, {{0, 0, 1}, {0xBF, 3}}, ""},
        {datagram({Bytes(258, 5)}), {Bytes(258, 5)}, ""},
        {datagram({{0xC0, 0}, {0xFB, 0}, {0xFD, 0}, {0xFE, 0}, {0xFF, 0}}), {}, ""},
        {datagram({{}, {1, 0}, {}, {}, {2}}), {{1, 0}, {2}}, ""},
        {datagram({{1, 0}, {0xFC, 0, 'x'}, {2, 0}, {0xFC, 1}, {0xFC, 2}, {0xFC}}),
         {{1, 0}, {2, 0}},
         "Service Request Reset \nServer Request Text \nServer Request Text \n"},
    };
    for (const auto& [payload, frames, output] : cases) {
        EXPECT_EQ(output_of(push, payload), output);
        EXPECT_EQ(queued(), frames);
    }
    api_xcp_daq_push_frame(nullptr, 100);
    EXPECT_TRUE(queued().empty());
}

TEST(Ingestion, ACutOffMessageIsDroppedAndThoseBeforeItStay) {
    Bytes payload = datagram({{1, 0, 5, 5}, {2, 0, 6, 6, 6}});
    for (std::size_t length = payload.size(); length > 0; payload.resize(--length)) {
        push(payload);
        EXPECT_EQ(queued().size(), length == 17 ? 2U : length >= 8 ? 1U : 0U) << length;
    }
}

TEST(FrameQueue, KeepsOrderAndAUnitForEachOfThousandsOfFrames) {
    constexpr std::size_t frames = 20000;
    const auto numbered = [](std::size_t i) {
        return Bytes(i % 300, static_cast<std::uint8_t>(i / 300));
    };
    for (std::size_t i = 0; i < frames; ++i)
        XCPFrameBuffer.push(numbered(i));
    std::ptrdiff_t units = 0;
    while (XcpFrameBufferCount.try_acquire())
        ++units;
    EXPECT_EQ(units, frames);
    XcpFrameBufferCount.release(units);
    EXPECT_EQ(XCPFrameBuffer.size(), frames);
    for (std::size_t i = 0; i < frames; ++i)
        ASSERT_EQ(XCPFrameBuffer.wait_for_buffer(0ms), numbered(i));

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(XCPFrameBuffer.wait_for_buffer(50ms), EmptyFrameBuffer);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms) << "a unit without a frame";
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
    static double next_value() { return host().take_writes(1).at(0).value; }
    static void await_empty_queue() {
        while (XCPFrameBuffer.size() > 0)
            std::this_thread::yield();
    }
    void take_all_and_stop() {
        await_empty_queue();
        object.stopWorkerThreads();
    }
};

TEST_F(Worker, IsOneAtATimeAndBelongsToTheObjectThatStartedIt) {
    api_xcp_daq other;
    other.stopWorkerThreads();
    object.startWorkerThreads();
    object.startWorkerThreads();
    other.startWorkerThreads();
    other.stopWorkerThreads();
    EXPECT_EQ(frameThreadStopped, 0) << "the other object has no worker to stop";
    take_all_and_stop();
    object.stopWorkerThreads();
    EXPECT_EQ(host().calls, "Transport_udp::instance\nsetprio 0 22\n");
    api_xcp_daq::enableDAQProcessing();
    other.startWorkerThreads();
    push_value(1);
    EXPECT_EQ(next_value(), 1);
    other.stopWorkerThreads();
}

Time now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return {time.tv_sec, time.tv_nsec};
}

TEST_F(Worker, DecodesWhileEnabledAndTakesTheBaseAtTheFirstFrameAnyway) {
    push_value(1);
    object.startWorkerThreads();
    take_all_and_stop();
    const Time start = now();
    object.startWorkerThreads();
    push_value(1);
    push_value(1); // once this one is taken, the first has been dealt with
    await_empty_queue();
    const Time firstFrameDone = now();
    api_xcp_daq::enableDAQProcessing();
    push(datagram({{0, 0, 1, 0, 0, 0, 2}}));
    const auto write = host().take_writes(1).at(0);
    EXPECT_EQ(write.value, 2);
    EXPECT_GE(write.sampleTime, start) << "each start stamps afresh";
    EXPECT_LE(write.sampleTime, firstFrameDone);
    api_xcp_daq::disableDAQProcessing();
    push_value(3);
    take_all_and_stop();
    EXPECT_TRUE(host().take_writes().empty());
}

TEST_F(Worker, EndsWithinAWaitWhenIdle) {
    api_xcp_daq::enableDAQProcessing();
    auto longest = 0ns;
    for (int round = 0; round < 3; ++round) { // a stop may come just before the wait
        object.startWorkerThreads();
        push_value(1);
        next_value();
        const auto stop = std::chrono::steady_clock::now();
        object.stopWorkerThreads();
        longest = std::max(longest, std::chrono::steady_clock::now() - stop);
    }
    EXPECT_LT(longest, 1s);
}

TEST(FrameDump, AppendsToTheFileOfTheProcess) {
    const std::string path = "/tmp/api_xcp_frame_daq_" + std::to_string(getpid()) + ".txt";
    std::filesystem::create_directory(path);
    EXPECT_FALSE(api_xcp_daq::openFrameDataDump());
    EXPECT_TRUE(api_xcp_daq::closeFrameDataDump());
    std::filesystem::remove(path);
    std::ofstream(path) << "old ";
    for (const char* text : {"one ", "two"}) {
        EXPECT_TRUE(api_xcp_daq::openFrameDataDump());
        appData.frameDumpFile << text;
        EXPECT_TRUE(api_xcp_daq::closeFrameDataDump());
    }
    std::ifstream file(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "old one two");
    std::filesystem::remove(path);
}

Bytes next_frame() {
    Bytes frame = {0xEE}; // is appended to, never cleared
    const std::int64_t size = api_xcp_daq::readFrameData(&frame, 1);
    EXPECT_EQ(size + 1, static_cast<std::int64_t>(frame.size()));
    EXPECT_EQ(frame.at(0), 0xEE);
    return Bytes(frame.begin() + 1, frame.end());
}

TEST(Replay, ReadsRecordsAsTheyStand) {
    const std::pair<std::string, std::vector<Bytes>> cases[] = {
        // several lines, any case
        {"18 \n0,1,2,3,4,5,6,7,8,9,a,B,c,d,e,f\nfe,FF\n1 \n5\n",
         {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0xFE, 0xFF}, {5}}},
        // a whole line, but 16 values of it at most
        {"3 \n1,2,3,4,5\n5 \n1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1\n",
         {{1, 2, 3, 4, 5}, Bytes(16, 1)}},
        // a length that says nothing takes one line
        {"0 \n1,2\n-7 \n3\nlength\n4,5\n", {{1, 2}, {3}, {4, 5}}},
        // values as their format reads them
        {"6 \n1ff, 0x2,3 ,9\r\n\nxyz\n4\r\n5,6\n2 text\n1,2\n", {{0xFF, 2, 3, 4, 5, 6}, {1, 2}}},
        {"1 \n5\n\n2 \n6,7\n", {{5}, {2}}}, // out of step after an empty line
        {"4 \n1,2", {{1, 2}}},              // a file that ends early
        {"1 \n5\n9", {{5}}},                // a last length line without a line feed
    };
    for (const auto& [text, frames] : cases) {
        const TemporaryFile file(text);
        appData.frameReplayFile = std::ifstream(file.path());
        EXPECT_TRUE(api_xcp_daq::openReadFrameData()) << "a file that is open stays";
        for (const Bytes& frame : frames)
            EXPECT_EQ(next_frame(), frame) << text;
        EXPECT_TRUE(next_frame().empty() && next_frame().empty()) << text;
    }
}

class FailsAfterItsText : public std::stringbuf {
    using std::stringbuf::stringbuf;
    int_type underflow() override { throw std::runtime_error("input/output error"); }
};

TEST(Replay, AFileThatFailsEndsThere) {
    EXPECT_TRUE(next_frame().empty()) << "nothing was opened yet";
    FailsAfterItsText text("1 \n9\n20 \n1,2,3\n");
    static_cast<std::ios&>(appData.frameReplayFile).rdbuf(&text);
    for (const Bytes& frame : {Bytes{9}, Bytes{1, 2, 3}, Bytes{}, Bytes{}})
        EXPECT_EQ(next_frame(), frame);
}

} // namespace
