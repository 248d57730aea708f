// The object's life and the configuration record.

#include "api_xcp_daq.h"
#include "table.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <latch>
#include <memory>

using namespace std::chrono_literals;

namespace {

void expect_reserved() {
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(appData.daqList[i].listNumber, static_cast<std::int64_t>(i) + 1);
        EXPECT_EQ(appData.daqList[i].measurementAttrs.nameList.capacity(), 300U);
        EXPECT_EQ(appData.daqList[i].halVarList.capacity(), 300U);
    }
    EXPECT_EQ(appData.measurementList.capacity(), 2000U);
}

TEST(Facade, FirstConstructionReservesAndNumbersTheLists) {
    EXPECT_EQ(appData.daqList[0].listNumber, 0);
    appData.daqCount = 9;
    appData.logEnabled = true;
    const api_xcp_daq object;
    expect_reserved();
    EXPECT_EQ(appData.stimList[0].listNumber, 0);
    EXPECT_EQ(appData.daqCount, 0);
    EXPECT_FALSE(appData.logEnabled);
}

TEST(Facade, WhoeverConstructsAtTheSameTimeFindsTheListsReady) {
    std::latch start(4);
    std::vector<std::future<void>> constructions;
    for (int i = 0; i < 4; ++i)
        constructions.push_back(std::async(std::launch::async, [&] {
            start.arrive_and_wait();
            const api_xcp_daq object;
            expect_reserved();
        }));
}

TEST(Facade, EveryDestructionEmptiesTheListsAndNothingElse) {
    auto first = std::make_unique<api_xcp_daq>();
    const api_xcp_daq second;
    xcpDAQList& filled = appData.daqList[2];
    filled.halVarList.emplace_back();
    filled.measurementAttrs.nameList.emplace_back("speed");
    table::add_plain("speed", 2, 0, 0, 4);
    filled.daqName = "slow";
    appData.daqCount = 1;
    appData.logEnabled = true;

    first.reset();
    const api_xcp_daq third;
    EXPECT_EQ(filled.halVarList.capacity(), 0U);
    EXPECT_EQ(filled.measurementAttrs.nameList.capacity(), 0U);
    EXPECT_TRUE(filled.odtEntryMap.empty());
    EXPECT_EQ(filled.odtEntryByName.at("speed")->name, "speed");
    EXPECT_EQ(filled.odtTableInfo.at(0).entryCount, 1U);
    EXPECT_EQ(filled.daqName, "slow");
    EXPECT_EQ(appData.daqList[1].halVarList.capacity(), 300U) << "an empty list keeps its room";
    EXPECT_EQ(appData.daqCount, 1);
    EXPECT_TRUE(appData.logEnabled);
}

TEST(Facade, WhatChangesTheRecordWaitsForItsMutex) {
    api_xcp_daq object;
    auto destroyed = std::make_unique<api_xcp_daq>();
    const std::function<void()> calls[] = {
        [&] { destroyed.reset(); },
        [&] { object.setSpecFileName("none", "/nonexistent/"); },
        [] { api_xcp_daq::addMeasurement("m", 0, 0, 0, 1, 0); },
        api_xcp_daq::stoplog,
    };
    std::vector<std::future<void>> pending;
    const std::lock_guard lock(XCPDAQAppData_mutex);
    for (const auto& call : calls)
        pending.push_back(std::async(std::launch::async, call));
    for (const auto& call : pending)
        EXPECT_EQ(call.wait_for(50ms), std::future_status::timeout);
}

TEST(Facade, MeasurementInfoIsCopiedForTheFourListsOnly) {
    api_xcp_daq object;
    appData.daqList[3].daqResource = "STIM";
    appData.daqList[3].triggerName = "event10ms";
    appData.daqList[3].measurementAttrs.nameList = {"a", "b"};
    getMeasurementArgs args;
    args.userValue = 7;
    for (const int index : {3, 4, -1}) {
        object.getMeasurementInfoFromSpecs(index, &args);
        EXPECT_EQ(args.daqResource + args.triggerName, "STIMevent10ms");
        EXPECT_EQ(args.measurementAttrs.nameList, (std::vector<std::string>{"a", "b"}));
        EXPECT_EQ(args.userValue, 7U);
    }
    object.getMeasurementInfoFromSpecs(0, &args);
    EXPECT_EQ(args.daqResource + args.triggerName, "");
    EXPECT_TRUE(args.measurementAttrs.nameList.empty());
}

} // namespace
