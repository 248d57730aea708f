// The object's life and the configuration record.

#include "api_xcp_daq.h"
#include "host_double.h"
#include "table.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

void fill_list(std::size_t index) {
    appData.daqList[index].halVarList.emplace_back();
    appData.daqList[index].measurementAttrs.nameList.emplace_back("speed");
    table::add_plain("speed", static_cast<int>(index), 0, 0, 4);
}

TEST(Facade, FirstConstructionReservesAndNumbersTheLists) {
    for (const auto& list : appData.daqList)
        EXPECT_EQ(list.listNumber, 0);
    appData.daqCount = 9;
    appData.logEnabled = true;
    const api_xcp_daq object;
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(appData.daqList[i].listNumber, static_cast<std::int64_t>(i) + 1);
        EXPECT_EQ(appData.daqList[i].measurementAttrs.nameList.capacity(), 300U);
        EXPECT_EQ(appData.daqList[i].halVarList.capacity(), 300U);
        EXPECT_EQ(appData.stimList[i].listNumber, 0);
    }
    EXPECT_EQ(appData.measurementList.capacity(), 2000U);
    EXPECT_EQ(appData.daqCount, 0);
    EXPECT_FALSE(appData.logEnabled);
}

TEST(Facade, TwoFirstConstructionsAtOnceInitialiseOnce) {
    std::thread other([] { const api_xcp_daq object; });
    const api_xcp_daq object;
    other.join();
    EXPECT_EQ(appData.daqList[3].listNumber, 4);
    EXPECT_EQ(appData.daqList[3].halVarList.capacity(), 300U);
}

TEST(Facade, EveryDestructionEmptiesTheListsAndNothingElse) {
    auto first = std::make_unique<api_xcp_daq>();
    const api_xcp_daq second;
    fill_list(2);
    appData.daqList[2].daqName = "slow";
    appData.daqCount = 1;
    appData.logEnabled = true;

    first.reset();
    const xcpDAQList& filled = appData.daqList[2];
    EXPECT_EQ(filled.halVarList.capacity(), 0U);
    EXPECT_EQ(filled.measurementAttrs.nameList.capacity(), 0U);
    EXPECT_TRUE(filled.odtEntryMap.empty());
    EXPECT_EQ(filled.odtEntryByName.at("speed")->name, "speed");
    EXPECT_EQ(filled.odtTableInfo.at(0).entryCount, 1U);
    EXPECT_EQ(filled.daqName, "slow");
    EXPECT_EQ(appData.daqList[1].halVarList.capacity(), 300U) << "an empty list keeps its room";

    const api_xcp_daq third;
    EXPECT_EQ(appData.daqCount, 1);
    EXPECT_TRUE(appData.logEnabled);
    EXPECT_EQ(filled.halVarList.capacity(), 0U);
}

TEST(Facade, MeasurementInfoIsCopiedForTheFourListsOnly) {
    api_xcp_daq object;
    appData.daqList[3].daqResource = "STIM";
    appData.daqList[3].triggerName = "event10ms";
    appData.daqList[3].measurementAttrs.nameList = {"a", "b"};

    getMeasurementArgs args;
    args.userValue = 7;
    object.getMeasurementInfoFromSpecs(3, &args);
    EXPECT_EQ(args.daqResource, "STIM");
    EXPECT_EQ(args.triggerName, "event10ms");
    EXPECT_EQ(args.measurementAttrs.nameList, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(args.userValue, 7U);

    object.getMeasurementInfoFromSpecs(4, &args);
    object.getMeasurementInfoFromSpecs(-1, &args);
    EXPECT_EQ(args.triggerName, "event10ms");
    object.getMeasurementInfoFromSpecs(0, &args);
    EXPECT_EQ(args.triggerName, "");
    EXPECT_TRUE(args.measurementAttrs.nameList.empty());
}

} // namespace
