// What the library allocates, and what it leaves behind when memory runs out.

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
using halmor_standin::VariableKind;
using halmor_standin::VariableStore;
using table::Bytes;

static std::atomic<long> allowed = -1; // further allocations that succeed; negative: all
static std::atomic<const std::function<void()>*> meanwhile = nullptr; // runs in the next one

// All allocations of the process. The memory goes back through the standard library's operator
// delete, which is free().
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
    if (const auto* act = meanwhile.exchange(nullptr))
        (*act)();
    if (allowed == 0)
        throw std::bad_alloc();
    allowed -= allowed > 0 ? 1 : 0;
    return std::aligned_alloc(static_cast<std::size_t>(alignment), size);
}
[[gnu::noinline]] void* operator new(std::size_t size) {
    return operator new (size, std::align_val_t{alignof(std::max_align_t)});
}

namespace {

// Whether `act` gets along with so many allocations.
template <class Act>
bool succeeds_with(long count, const Act& act) try {
    allowed = count;
    act();
    allowed = -1;
    return true;
} catch (const std::bad_alloc&) {
    allowed = -1;
    return false;
}

TEST(Allocation, NeitherValuesNorDiagnosticsNeedAny) {
    const api_xcp_daq object;
    for (int index = 0; index < 8; ++index) {
        const std::string name = std::to_string(index);
        VariableStore::instance().define(name, VariableKind(1 + index / 4), "");
        table::add_plain(name, 0, 0, index, 1 << index % 4, MODE_TIMESTAMP);
    }
    VariableStore::instance().define("odd", VariableKind::real, "");
    table::add_plain("odd", 0, 1, 0, 3);
    const Bytes requests = table::datagram({{0xFC, 0}, {0xFC, 1}});
    const Bytes packets[] = {Bytes(2 + 4 + 30, 0), {1, 0, 1, 2, 3}, {9, 0, 0}, {0, 4}};
    timespec base{};
    bool succeeded = false;
    const std::string output = output_of([&] {
        succeeded = succeeds_with(0, [&] {
            api_xcp_daq_push_frame(requests.data(), requests.size());
            for (const Bytes& packet : packets)
                api_xcp_daq::processFrame(packet, &base);
        });
    });
    EXPECT_TRUE(succeeded);
    EXPECT_EQ(VariableStore::instance().find("7")->read().updates, 1U);
    EXPECT_EQ(output, "Service Request Reset \nServer Request Text \n Invalid odt entry size 3\n"
                      "buffer.size = 3 Unable daqNum= 0 OdtEntryIndex= 9 to find entry in using "
                      "odt 9 -1\nReceived Invalid buffer or out of range daqNum = 4\n");
}

TEST(FirstConstruction, IsWaitedForByOthersWhichFindTheListsReady) {
    std::future<std::size_t> others[3];
    const std::function<void()> constructOthers = [&] {
        for (auto& other : others)
            other = std::async(std::launch::async, [] {
                const api_xcp_daq object;
                return appData.daqList[3].halVarList.capacity();
            });
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
    EXPECT_EQ(appData.daqList[1].halVarList.capacity(), 300U);
    EXPECT_EQ(appData.daqList[2].measurementAttrs.nameList.capacity(), 0U);
}

TEST(OutOfMemory, WhatWasQueuedStays) {
    Bytes payload;
    constexpr std::uint8_t packets = 60; // more than fit into what the queue allocates at once
    for (std::uint8_t i = 1; i <= packets; ++i)
        xcp::append_message(payload, 0, Bytes{i, 0});
    const auto push = [&] { api_xcp_daq_push_frame(payload.data(), payload.size()); };
    bool succeeded = false;
    for (long count = 0; !succeeded; ++count) {
        succeeded = succeeds_with(count, push);
        std::uint8_t queued = 0;
        while (XCPFrameBuffer.size() > 0)
            ASSERT_EQ(XCPFrameBuffer.wait_for_buffer(0ms), (Bytes{++queued, 0}));
        EXPECT_EQ(queued == packets, succeeded);
        EXPECT_LE(count, queued + 8) << "one for a frame, and a few for the queue";
        EXPECT_FALSE(XcpFrameBufferCount.try_acquire());
    }
}

TEST(OutOfMemory, NamesAndMeasurementLinesStayOfOneLength) {
    const TemporaryFile spec("@XCP_SERVER\nhost:1\n@LIST1\nlist DAQ event\n"
                             "aNameThatNeedsMemory tag -\nanotherNameThatNeedsMemory tag -\n");
    xcpDAQList& list = appData.daqList[0];
    bool succeeded = false;
    for (long count = 0; !succeeded; ++count) {
        list = {};
        succeeded = succeeds_with(count, [&] { api_xcp_daq::readSpecs(spec.path().c_str()); });
        EXPECT_EQ(list.halVarList.size(), list.measurementAttrs.nameList.size()) << count;
    }
    EXPECT_EQ(list.halVarList.size(), 2U);
}

TEST(OutOfMemory, AMeasurementIsAddedWhollyOrNotAtAll) {
    VariableStore::instance().define("v", VariableKind::real, "");
    table::add_plain("first", 0, 0, 0, 1);
    const xcpDAQList& list = appData.daqList[0];
    const xcpDAQList before = list;
    const auto add = [] { api_xcp_daq::addMeasurement("v", 0, 1, 0, 2, 0); };
    for (long count = 0; !succeeds_with(count, add); ++count) {
        EXPECT_EQ(list.odtTableInfo.size(), 1U);
        EXPECT_EQ(list.odtEntryMap, before.odtEntryMap);
        EXPECT_EQ(list.odtEntryByName, before.odtEntryByName);
    }
    EXPECT_EQ(list.odtTableInfo.at(1).entryCount, 1U);
    EXPECT_EQ(list.odtEntryMap.at({1, 0}), list.odtEntryByName.at("v"));
    EXPECT_EQ(list.odtEntryByName.at("v")->hostVar, nullptr) << "the descriptor came last";
}

TEST(OutOfMemory, AWorkerThatCouldNotBeStartedCanBeStartedLater) {
    api_xcp_daq object;
    for (long count = 0; !succeeds_with(count, [&] { object.startWorkerThreads(); }); ++count)
        EXPECT_EQ(frameThreadStopped, 0);
    object.stopWorkerThreads();
    EXPECT_EQ(frameThreadStopped, 1) << "there was one";
}

} // namespace
