// Datagrams into frames.

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "table.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <random>

using namespace std::chrono_literals;
using table::Bytes;
using table::datagram;
using table::message;

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

std::string output_of(const Bytes& payload) {
    testing::internal::CaptureStdout();
    push(payload);
    return testing::internal::GetCapturedStdout();
}

TEST(Ingestion, SplitsADatagramInOrder) {
    Bytes payload = message({0, 0, 1}, 0xFFFF);
    for (const Bytes& next : {message({0xBF, 3}, 0), message({5}, 7)})
        payload.insert(payload.end(), next.begin(), next.end());
    push(payload);
    EXPECT_EQ(queued(), (std::vector<Bytes>{{0, 0, 1}, {0xBF, 3}, {5}}));
}

TEST(Ingestion, NothingComesOfNothing) {
    api_xcp_daq_push_frame(nullptr, 100);
    push({});
    EXPECT_TRUE(queued().empty());
}

TEST(Ingestion, OnlyDaqPidsAreQueued) {
    EXPECT_EQ(output_of(datagram({{0xC0, 0}, {0xFB, 0}, {0xFD, 0}, {0xFE, 0}, {0xFF, 0}})), "");
    EXPECT_TRUE(queued().empty());
}

TEST(Ingestion, ServiceRequestsAreReported) {
    EXPECT_EQ(output_of(datagram({{1, 0}, {0xFC, 0, 'x'}, {2, 0}, {0xFC, 1}, {0xFC, 2}, {0xFC}})),
              "Service Request Reset \nServer Request Text \nServer Request Text \n");
    EXPECT_EQ(queued(), (std::vector<Bytes>{{1, 0}, {2, 0}}));
}

TEST(Ingestion, AMessageWithoutPacketIsSteppedOver) {
    push(datagram({{}, {1, 0}, {}, {}, {2, 0}}));
    EXPECT_EQ(queued(), (std::vector<Bytes>{{1, 0}, {2, 0}}));
}

TEST(Ingestion, ACutOffMessageIsDroppedAndThoseBeforeItStay) {
    const Bytes whole = datagram({{1, 0, 5, 5}, {2, 0, 6, 6, 6}});
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        push(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        EXPECT_EQ(queued().size(), length == whole.size() ? 2U : length >= 8 ? 1U : 0U) << length;
    }
}

TEST(Ingestion, RandomPayloadsStayInsideTheirBuffers) {
    std::mt19937 random(7);
    std::size_t frames = 0;
    std::size_t largest = 0;
    testing::internal::CaptureStdout();
    for (int round = 0; round < 20000; ++round) {
        Bytes payload(random() % 64);
        for (auto& byte : payload)
            byte = static_cast<std::uint8_t>(random() % 4 == 0 ? random() : random() % 8);
        push(payload);
        for (const Bytes& frame : queued()) {
            ASSERT_LE(frame.at(0), 0xBF);
            ++frames;
            largest = std::max(largest, frame.size());
        }
    }
    testing::internal::GetCapturedStdout();
    EXPECT_GT(frames, 1000U);
    EXPECT_LE(largest, 60U);
}

} // namespace
