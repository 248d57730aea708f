// The frame queue and its semaphore.

#include "api_xcp_daq_threads.h"
#include "table.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <thread>

using namespace std::chrono_literals;
using table::Bytes;

namespace {

Bytes numbered(std::uint8_t producer, std::uint16_t number) {
    return {producer, static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8)};
}

TEST(FrameQueue, AnEmptyQueueYieldsTheEmptyFrameAfterTheTimeout) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(XCPFrameBuffer.wait_for_buffer(50ms), EmptyFrameBuffer);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
}

TEST(FrameQueue, KeepsTenThousandFramesInOrder) {
    for (int i = 0; i < 10000; ++i)
        XCPFrameBuffer.push(numbered(0, static_cast<std::uint16_t>(i)));
    EXPECT_EQ(XCPFrameBuffer.size(), 10000U);
    for (int i = 0; i < 10000; ++i)
        ASSERT_EQ(XCPFrameBuffer.wait_for_buffer(0ms), numbered(0, static_cast<std::uint16_t>(i)));
    EXPECT_TRUE(XCPFrameBuffer.wait_for_buffer(0ms).empty());
}

TEST(FrameQueue, TakesCopiesWhenAskedTo) {
    const Bytes frame = {1, 2, 3};
    XCPFrameBuffer.push(frame);
    Bytes taken = XCPFrameBuffer.wait_for_buffer(0ms);
    EXPECT_EQ(taken, frame);
    taken.clear();
    taken = XCPFrameBuffer.wait_for_buffer(0ms);
    taken.push_back(1);
    EXPECT_TRUE(EmptyFrameBuffer.empty());
}

TEST(FrameQueue, EveryProducersFramesKeepTheirOrder) {
    constexpr std::uint16_t each = 5000;
    std::vector<std::thread> producers;
    for (std::uint8_t producer = 0; producer < 3; ++producer)
        producers.emplace_back([producer] {
            for (std::uint16_t i = 0; i < each; ++i)
                XCPFrameBuffer.push(numbered(producer, i));
        });
    std::map<std::uint8_t, std::uint16_t> next;
    for (int i = 0; i < 3 * each; ++i) {
        const Bytes frame = XCPFrameBuffer.wait_for_buffer(10s);
        ASSERT_EQ(frame, numbered(frame.at(0), next[frame[0]]++));
    }
    for (auto& producer : producers)
        producer.join();
    EXPECT_EQ(XCPFrameBuffer.size(), 0U);
}

} // namespace
