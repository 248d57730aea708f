// The frame queue and its semaphore.

#include "api_xcp_daq_threads.h"
#include "table.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace std::chrono_literals;
using table::Bytes;

namespace {

Bytes numbered(int number) {
    return {static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(number >> 8)};
}

TEST(FrameQueue, AnEmptyQueueYieldsTheEmptyFrameAfterTheTimeout) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(XCPFrameBuffer.wait_for_buffer(50ms), EmptyFrameBuffer);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
}

TEST(FrameQueue, KeepsTenThousandFramesInOrder) {
    for (int i = 0; i < 10000; ++i)
        XCPFrameBuffer.push(numbered(i));
    EXPECT_EQ(XCPFrameBuffer.size(), 10000U);
    for (int i = 0; i < 10000; ++i)
        ASSERT_EQ(XCPFrameBuffer.wait_for_buffer(0ms), numbered(i));
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

} // namespace
