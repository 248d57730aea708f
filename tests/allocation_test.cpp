// What the library allocates, and what it leaves behind when memory runs out. Every allocation of
// the process goes through this file's operator new.

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "host/standin/variable_store.h"
#include "table.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <future>
#include <new>

using namespace std::chrono_literals;

static std::atomic<long> allocations = 0;
static std::atomic<long> allowed = -1; // further allocations that succeed; negative: all
static std::atomic<const std::function<void()>*> meanwhile = nullptr; // runs in the next one

static void* allocate(std::size_t size, std::size_t alignment) {
    ++allocations;
    if (const auto* act = meanwhile.exchange(nullptr))
        (*act)();
    void* memory = allowed == 0 ? nullptr : std::aligned_alloc(alignment, size);
    if (memory == nullptr)
        throw std::bad_alloc();
    allowed -= allowed > 0 ? 1 : 0;
    return memory;
}

[[gnu::noinline]] void* operator new(std::size_t size) {
    return allocate(size, alignof(std::max_align_t));
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate(size, static_cast<std::size_t>(alignment));
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}

namespace {

using halmor_standin::VariableKind;
using halmor_standin::VariableStore;
using table::Bytes;

// Whether `act` gets along with so many allocations.
template <class Act>
bool succeeds_with(long count, const Act& act) {
    allowed = count;
    bool succeeded = true;
    try {
        act();
    } catch (const std::bad_alloc&) {
        succeeded = false;
    }
    allowed = -1;
    return succeeded;
}

// ---- what is allocated ----

TEST(Allocation, TheDecoderNeedsNone) {
    const api_xcp_daq object;
    for (int index = 0; index < 8; ++index) {
        const std::string name = std::to_string(index);
        VariableStore::instance().define(name, VariableKind(1 + index / 4), "");
        table::add_plain(name, 0, 0, index, 1 << index % 4, MODE_TIMESTAMP);
    }
    const Bytes packet(
        static_cast<std::size_t>(appData.daqList[0].odtTableInfo.at(0).odtLength) + 4, 0);
    timespec base{};
    EXPECT_TRUE(succeeds_with(0, [&] { api_xcp_daq::processFrame(packet, &base); }));
    EXPECT_EQ(VariableStore::instance().find("7")->read().updates, 1U);
}

TEST(Allocation, DiagnosticsNeedNone) {
    const api_xcp_daq object;
    VariableStore::instance().define("v", VariableKind::real, "");
    table::add_plain("v", 0, 0, 0, 3);
    const Bytes requests = table::datagram({{0xFC, 0}, {0xFC, 1}});
    const Bytes packets[] = {{9, 0, 0}, {0, 4}, {0, 0, 1, 2, 3}};
    bool succeeded = false;
    const std::string output = output_of([&] {
        succeeded = succeeds_with(0, [&] {
            api_xcp_daq_push_frame(requests.data(), requests.size());
            for (const Bytes& packet : packets)
                api_xcp_daq::processFrame(packet, nullptr);
        });
    });
    EXPECT_TRUE(succeeded);
    EXPECT_EQ(output, "Service Request Reset \nServer Request Text \n"
                      "buffer.size = 3 Unable daqNum= 0 OdtEntryIndex= 9 to find entry in using "
                      "odt 9 -1\nReceived Invalid buffer or out of range daqNum = 4\n"
                      " Invalid odt entry size 3\n");
}

TEST(Allocation, IngestionNeedsTheFrameAndTheQueuesRoom) {
    const Bytes payload = table::datagram({Bytes(100, 0), {0xFF, 0}, Bytes(100, 1)});
    const long before = allocations;
    constexpr long rounds = 1000;
    for (long i = 0; i < rounds; ++i)
        api_xcp_daq_push_frame(payload.data(), payload.size());
    EXPECT_LT(allocations - before, 2 * rounds + 2 * rounds / 10);
}

// ---- first construction ----

std::size_t room(std::size_t list) {
    EXPECT_EQ(appData.daqList[list].measurementAttrs.nameList.capacity(),
              appData.daqList[list].halVarList.capacity());
    return appData.daqList[list].halVarList.capacity();
}

TEST(FirstConstruction, OthersWaitForItAndFindTheListsReady) {
    const auto construct = [] {
        const api_xcp_daq object;
        return room(3);
    };
    std::future<std::size_t> others[2];
    const std::function<void()> constructOthers = [&] {
        for (auto& other : others)
            other = std::async(std::launch::async, construct);
        for (auto& other : others)
            EXPECT_EQ(other.wait_for(50ms), std::future_status::timeout);
    };
    meanwhile = &constructOthers;
    const api_xcp_daq object;
    appData.daqCount = 7;
    for (auto& other : others)
        EXPECT_EQ(other.get(), 300U);
    EXPECT_EQ(appData.daqCount, 7) << "was initialised again";
}

TEST(FirstConstruction, IsNotRepeatedAfterMemoryHasRunOut) {
    EXPECT_FALSE(succeeds_with(4, [] { const api_xcp_daq object; }));
    EXPECT_TRUE(XCPDAQAppData_mutex.try_lock());
    XCPDAQAppData_mutex.unlock();
    const api_xcp_daq object;
    EXPECT_EQ(room(1), 300U);
    EXPECT_EQ(room(2), 0U);
}

// ---- when memory runs out ----

TEST(OutOfMemory, WhatWasQueuedStays) {
    Bytes payload;
    constexpr std::uint8_t packets = 60; // more than fit into what the queue allocates at once
    for (std::uint8_t i = 1; i <= packets; ++i)
        xcp::append_message(payload, 0, Bytes{i, 0});
    bool succeeded = false;
    for (long count = 0; !succeeded; ++count) {
        succeeded =
            succeeds_with(count, [&] { api_xcp_daq_push_frame(payload.data(), payload.size()); });
        // The frames before the failure, each with its unit of the semaphore, and no more.
        const std::size_t queued = XCPFrameBuffer.size();
        EXPECT_EQ(queued == packets, succeeded);
        for (std::size_t i = 1; i <= queued; ++i)
            EXPECT_EQ(XCPFrameBuffer.wait_for_buffer(0ms),
                      (Bytes{static_cast<std::uint8_t>(i), 0}));
        EXPECT_FALSE(XcpFrameBufferCount.try_acquire());
    }
}

TEST(OutOfMemory, NamesAndMeasurementLinesStayOfOneLength) {
    const TemporaryFile spec("@XCP_SERVER\nhost:1\n@LIST1\nlist DAQ event\n"
                             "aNameThatNeedsMemory tag -\nanotherNameThatNeedsMemory tag -\n"
                             "aThirdNameThatNeedsMemory tag -\n$\n");
    const xcpDAQList& list = appData.daqList[0];
    bool succeeded = false;
    for (long count = 0; !succeeded; ++count) {
        appData.daqList[0] = {};
        succeeded = succeeds_with(count, [&] { api_xcp_daq::readSpecs(spec.path().c_str()); });
        EXPECT_EQ(list.halVarList.size(), list.measurementAttrs.nameList.size()) << count;
    }
    EXPECT_EQ(list.halVarList.size(), 3U);
}

TEST(OutOfMemory, AMeasurementIsAddedWhollyOrNotAtAll) {
    VariableStore::instance().define("v", VariableKind::real, "");
    table::add_plain("first", 0, 0, 0, 1);
    const xcpDAQList before = appData.daqList[0];
    const xcpDAQList& list = appData.daqList[0];
    bool succeeded = false;
    long count = 0;
    for (; !succeeded; ++count) {
        EXPECT_EQ(list.odtTableInfo.size(), 1U);
        EXPECT_EQ(list.odtTableInfo.at(0).entryCount, 1U);
        EXPECT_EQ(list.odtTableInfo.at(0).odtLength, 3);
        EXPECT_EQ(list.odtEntryMap, before.odtEntryMap);
        EXPECT_EQ(list.odtEntryByName, before.odtEntryByName);
        succeeded = succeeds_with(count, [] { api_xcp_daq::addMeasurement("v", 0, 0, 1, 2, 0); });
    }
    EXPECT_GT(count, 4) << "an entry and its place in three maps";
    EXPECT_EQ(list.odtTableInfo.at(0).entryCount, 2U);
    EXPECT_EQ(list.odtEntryMap.at({0, 1}), list.odtEntryByName.at("v"));
}

TEST(OutOfMemory, AWorkerThatCouldNotBeStartedCanBeStartedLater) {
    api_xcp_daq object;
    for (long count = 0; !succeeds_with(count, [&] { object.startWorkerThreads(); }); ++count)
        EXPECT_EQ(frameThreadStopped, 0);
    object.stopWorkerThreads();
    EXPECT_EQ(frameThreadStopped, 1) << "there was one";
}

} // namespace
