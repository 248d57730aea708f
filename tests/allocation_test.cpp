// What the frame path allocates. Every allocation of the process goes through this file's operator
// new.

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "host/standin/variable_store.h"
#include "table.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

static std::atomic<long> allocations = 0;
static std::atomic<long> allowed = -1; // further allocations that succeed; negative: all

[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (allowed >= 0 && allowed-- == 0) {
        allowed = -1;
        throw std::bad_alloc();
    }
    if (void* memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

using table::Bytes;

TEST(Allocation, TheDecoderNeedsNone) {
    const api_xcp_daq object;
    auto& store = halmor_standin::VariableStore::instance();
    auto* last = &store.define("0", halmor_standin::VariableKind::integer, "");
    for (int index = 1; index < 8; ++index)
        last =
            &store.define(std::to_string(index), halmor_standin::VariableKind(1 + index / 4), "");
    for (int index = 0; index < 8; ++index)
        table::add_plain(std::to_string(index), 0, 0, index, 1 << index % 4, MODE_TIMESTAMP);
    const Bytes packet(
        static_cast<std::size_t>(appData.daqList[0].odtTableInfo.at(0).odtLength) + 4, 0);
    timespec base{};
    const long before = allocations;
    for (int i = 0; i < 100; ++i)
        api_xcp_daq::processFrame(packet, &base);
    EXPECT_EQ(allocations, before);
    EXPECT_EQ(last->read().updates, 100U);
}

TEST(Allocation, IngestionNeedsTheFrameAndTheQueuesRoom) {
    const Bytes payload = table::datagram({Bytes(100, 0), {0xFF, 0}, Bytes(100, 1)});
    const long before = allocations;
    constexpr long rounds = 1000;
    for (long i = 0; i < rounds; ++i)
        api_xcp_daq_push_frame(payload.data(), payload.size());
    EXPECT_LT(allocations - before, 2 * rounds + 2 * rounds / 10);
}

TEST(Allocation, WhenMemoryRunsOutWhatWasQueuedStays) {
    Bytes payload;
    constexpr std::uint8_t packets = 60; // more than fit into what the queue allocates at once
    for (std::uint8_t i = 1; i <= packets; ++i)
        for (const std::uint8_t byte : table::message({i, 0}))
            payload.push_back(byte);
    bool failed = true;
    for (long after = 0; failed; ++after) {
        allowed = after;
        try {
            api_xcp_daq_push_frame(payload.data(), payload.size());
            failed = false;
        } catch (const std::bad_alloc&) {
        }
        allowed = -1;
        // The frames before the failure, each with its unit of the semaphore, and no more.
        const std::size_t queued = XCPFrameBuffer.size();
        EXPECT_EQ(queued == packets, !failed);
        for (std::size_t i = 1; i <= queued; ++i)
            EXPECT_EQ(XCPFrameBuffer.wait_for_buffer(std::chrono::milliseconds(0)),
                      (Bytes{static_cast<std::uint8_t>(i), 0}));
        EXPECT_FALSE(XcpFrameBufferCount.try_acquire());
    }
}

} // namespace
