// Layout, binding and conversion of measurements.

#include "api_xcp_daq.h"
#include "host_double.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <limits>

using host_double::host;

namespace {

constexpr int huge = std::numeric_limits<int>::max();
constexpr int lowest = std::numeric_limits<int>::min();

const odt_table_entry& entry(int odt, int index) {
    return *appData.daqList[0].odtEntryMap.at({odt, index});
}

class MeasurementTable : public testing::Test {
  protected:
    api_xcp_daq object;
    TemporaryFile log;
    TemporaryFile measurements;

    MeasurementTable() {
        appData.logFile.open(log.path());
        appData.logEnabled = true;
        appData.measurementFile.open(measurements.path());
    }
};

TEST_F(MeasurementTable, EachEntryStartsBehindItsPredecessor) {
    struct Case {
        int odt, index, size;
        int firstByte, lastByte;
    };
    const Case cases[] = {
        {3, 5, 2, 2, 3}, // the first of its list, whatever its index
        {7, 0, 4, 2, 5},       {7, 1, 2, 6, 7},       {7, 2, 1, 8, 8},
        {8, 0, 8, 2, 9},       {8, 12, 2, 0, 1}, // has no predecessor
        {9, 0, huge, 2, huge}, {9, 1, 4, huge, huge}, {10, 0, lowest, 2, lowest + 1},
        {10, lowest, 4, 0, 3},
    };
    for (const Case& c : cases) {
        api_xcp_daq::addMeasurement("m", 0, c.odt, c.index, c.size, 0);
        EXPECT_EQ(std::pair(entry(c.odt, c.index).firstByte, entry(c.odt, c.index).lastByte),
                  std::pair(c.firstByte, c.lastByte));
        EXPECT_EQ(appData.daqList[0].odtTableInfo.at(c.odt).odtLength,
                  std::int64_t{c.lastByte} + 1);
    }
    EXPECT_EQ(appData.daqList[0].odtTableInfo.at(7).entryCount, 3U);
    EXPECT_TRUE(appData.daqList[1].odtEntryMap.empty());
    appData.logFile.flush();
    EXPECT_EQ(log.text(),
              "failed to find previous odtEntry found : 12  instead of 11"
              "failed to find previous odtEntry found : -2147483648  instead of -2147483649");
}

TEST_F(MeasurementTable, TheLatestEntryWinsAndEveryCallCounts) {
    api_xcp_daq::addMeasurement("wide", 0, 0, 0, 8, 0);
    api_xcp_daq::addMeasurement("narrow", 0, 0, 0, 1, 0);
    EXPECT_EQ(entry(0, 0).name, "narrow");
    EXPECT_EQ(appData.daqList[0].odtTableInfo.at(0).odtLength, 3);
    EXPECT_EQ(appData.daqList[0].odtTableInfo.at(0).entryCount, 2U);

    api_xcp_daq::addMeasurement("narrow", 0, 4, 0, 2, 0);
    EXPECT_EQ(appData.daqList[0].odtEntryByName.at("narrow"), &entry(4, 0));
}

TEST_F(MeasurementTable, BindsAndMarksTheTasksOwnVariables) {
    appData.registeredName = "bench";
    host().define("real", host_double::real, "bench");
    host().define("integer", host_double::integer, "bench");
    host().define("third", host_double::other_real, "bench");
    host().define("longer", host_double::integer, "bench2");
    for (const char* name : {"real", "integer", "third", "longer", "unknown"})
        api_xcp_daq::addMeasurement(name, 0, 0, 0, 1, 0);
    EXPECT_EQ(host().marker("real", 54), 1);
    EXPECT_EQ(host().marker("integer", 2), 1);
    EXPECT_EQ(host().marker("third", 2), 1);
    EXPECT_EQ(host().marker("longer", 2), 0);
    const auto& entries = appData.daqList[0].odtEntryByName;
    EXPECT_EQ(entries.at("longer")->hostVar->kind, host_double::integer);
    EXPECT_EQ(entries.at("unknown")->hostVar, nullptr);
    EXPECT_EQ(log.text(),
              "Halmor Variable Name: real found \nHalmor Variable Name: integer found \n"
              "Halmor Variable Name: third found \nHalmor Variable Name: longer found \n");
}

TEST_F(MeasurementTable, FindVarTellsWhyThereIsNoDescriptor) {
    void* variable = nullptr;
    EXPECT_EQ(HMAPI_DAQ_find_var(nullptr, &variable), -1);
    EXPECT_EQ(HMAPI_DAQ_find_var("x", &variable), host_double::unknown_variable);
    host().define("x", host_double::real);
    for (bool* missing : {&host().noAddress, &host().noDescriptor}) {
        *missing = true;
        EXPECT_EQ(HMAPI_DAQ_find_var("x", &variable), 46);
        *missing = false;
    }
    EXPECT_EQ(variable, nullptr);
    EXPECT_EQ(HMAPI_DAQ_find_var("x", &variable), 0);
    EXPECT_EQ(static_cast<DaqVariable*>(variable)->kind, host_double::real);
    delete static_cast<DaqVariable*>(variable);
}

TEST_F(MeasurementTable, ALatterConversionOfTheListsEntryReplacesTheFormer) {
    api_xcp_daq::addMeasurement("N", 0, 1, 0, 2, 0x10);
    api_xcp_daq::addComputeMethod("N", 0, 9, 9, 9, 9, 9, 9, 9);
    api_xcp_daq::addComputeMethod("N", 0, 1, 0.5, 10, 2, 3, -100, 100);
    api_xcp_daq::addComputeMethod("N", 3, -1, -2, 1e9, 2, 5, 0.00005, 1e-9);
    api_xcp_daq::addMeasurement("N2", 3, 191, 1, 8, 255);
    const odt_table_entry& e = entry(1, 0);
    EXPECT_EQ(std::tuple(e.computeInt1, e.factor, e.offset, e.computeInt2, e.byteOrder,
                         e.lowerLimit, e.upperLimit),
              std::tuple(1, 0.5, 10.0, 2, 3, -100.0, 100.0));
    EXPECT_EQ(measurements.text(), "N,0,1,0,2,16\n"
                                   "N,0,9,9.0000,9.0000,9,9,9.0000,9.0000\n"
                                   "N,0,1,0.5000,10.0000,2,3,-100.0000,100.0000\n"
                                   "N,3,-1,-2.0000,1000000000.0000,2,5,0.0001,0.0000\n"
                                   "N2,3,191,1,8,255\n");
}

TEST_F(MeasurementTable, ListsOutsideZeroToThreeAreRefusedWithoutATrace) {
    for (const int list : {-1, 4, huge, lowest}) {
        api_xcp_daq::addMeasurement("m", list, 0, 0, 2, 0);
        api_xcp_daq::addComputeMethod("m", list, 1, 2, 3, 4, 5, 6, 7);
        EXPECT_EQ(api_xcp_daq::getNumOfHVars(list), 0);
        EXPECT_THROW(api_xcp_daq::getHalVarVecPtr(list, 0), std::out_of_range);
        EXPECT_THROW(api_xcp_daq::getHalVarVecPtr(2, list), std::out_of_range);
    }
    EXPECT_EQ(measurements.text(), "");
}

} // namespace
