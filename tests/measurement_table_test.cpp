// Layout, binding and conversion of measurements.

#include "api_xcp_daq.h"
#include "host_double.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <limits>

using host_double::host;

namespace {

const odt_table_entry& entry(int list, int odt, int index) {
    return *appData.daqList.at(static_cast<std::size_t>(list)).odtEntryMap.at({odt, index});
}

std::pair<int, int> bytes(int list, int odt, int index) {
    return {entry(list, odt, index).firstByte, entry(list, odt, index).lastByte};
}

class MeasurementTable : public testing::Test {
  protected:
    api_xcp_daq object;
    TemporaryFile log;
    TemporaryFile measurements;

    void open_logs() {
        appData.logFile.open(log.path());
        appData.logEnabled = true;
        appData.measurementFile.open(measurements.path());
    }
};

TEST_F(MeasurementTable, EntriesFollowEachOtherFromByteTwo) {
    const int sizes[] = {4, 2, 1};
    for (int index = 0; index < 3; ++index)
        api_xcp_daq::addMeasurement("m" + std::to_string(index), 1, 7, index, sizes[index], 0);
    EXPECT_EQ(bytes(1, 7, 0), std::pair(2, 5));
    EXPECT_EQ(bytes(1, 7, 1), std::pair(6, 7));
    EXPECT_EQ(bytes(1, 7, 2), std::pair(8, 8));
    EXPECT_EQ(appData.daqList[1].odtTableInfo.at(7).odtLength, 9);
    EXPECT_EQ(appData.daqList[1].odtTableInfo.at(7).entryCount, 3U);

    api_xcp_daq::addMeasurement("other", 1, 8, 0, 8, 0);
    EXPECT_EQ(bytes(1, 8, 0), std::pair(2, 9)) << "entry 0 of another ODT starts anew";
    EXPECT_TRUE(appData.daqList[0].odtEntryMap.empty());
}

TEST_F(MeasurementTable, AMissingPredecessorIsToldAndStartsAtByteZero) {
    open_logs();
    api_xcp_daq::addMeasurement("first of its list", 0, 3, 5, 2, 0);
    EXPECT_EQ(bytes(0, 3, 5), std::pair(2, 3)) << "whatever its index";
    api_xcp_daq::addMeasurement("a", 0, 0, 0, 2, 0);
    api_xcp_daq::addMeasurement("c", 0, 0, 2, 2, 0);
    EXPECT_EQ(bytes(0, 0, 2), std::pair(0, 1));
    appData.logFile.close();
    EXPECT_EQ(log.text(), "failed to find previous odtEntry found : 2  instead of 1");
}

TEST_F(MeasurementTable, TheLatestEntryWinsAndEveryCallCounts) {
    api_xcp_daq::addMeasurement("wide", 0, 0, 0, 8, 0);
    api_xcp_daq::addMeasurement("narrow", 0, 0, 0, 1, 0);
    EXPECT_EQ(entry(0, 0, 0).name, "narrow");
    EXPECT_EQ(appData.daqList[0].odtTableInfo.at(0).odtLength, 3);
    EXPECT_EQ(appData.daqList[0].odtTableInfo.at(0).entryCount, 2U);

    api_xcp_daq::addMeasurement("narrow", 0, 4, 0, 2, 0);
    EXPECT_EQ(appData.daqList[0].odtEntryByName.at("narrow")->odtNum, 4);
}

TEST_F(MeasurementTable, ExtremeSizesAndIndexesSaturate) {
    constexpr int huge = std::numeric_limits<int>::max();
    constexpr int negative = std::numeric_limits<int>::min();
    api_xcp_daq::addMeasurement("huge", 0, 0, 0, huge, 0);
    EXPECT_EQ(bytes(0, 0, 0), std::pair(2, huge));
    api_xcp_daq::addMeasurement("behind", 0, 0, 1, 4, 0);
    EXPECT_EQ(bytes(0, 0, 1), std::pair(huge, huge));
    api_xcp_daq::addMeasurement("under", 0, 1, 0, negative, 0);
    EXPECT_EQ(entry(0, 1, 0).lastByte, negative + 1);
    api_xcp_daq::addMeasurement("lowest", 0, 1, negative, 4, 0);
    EXPECT_EQ(bytes(0, 1, negative), std::pair(0, 3));
}

TEST_F(MeasurementTable, BindsAndMarksTheTasksOwnVariables) {
    open_logs();
    appData.registeredName = "bench";
    host().define("real", host_double::real, "bench");
    host().define("integer", host_double::integer, "bench");
    host().define("third", host_double::other_real, "bench");
    host().define("longer", host_double::integer, "bench2");
    int index = 0;
    for (const char* name : {"real", "integer", "third", "longer", "unknown"})
        api_xcp_daq::addMeasurement(name, 0, 0, index++, 1, 0);
    EXPECT_EQ(host().marker("real", 54), 1);
    EXPECT_EQ(host().marker("integer", 2), 1);
    EXPECT_EQ(host().marker("third", 2), 1);
    EXPECT_EQ(host().marker("longer", 2), 0);
    EXPECT_EQ(entry(0, 0, 3).hostVar->kind, host_double::integer);
    EXPECT_EQ(entry(0, 0, 4).hostVar, nullptr);
    appData.logFile.close();
    EXPECT_EQ(log.text(),
              "Halmor Variable Name: real found \nHalmor Variable Name: integer found \n"
              "Halmor Variable Name: third found \n"
              "Halmor Variable Name: longer found \n");
}

TEST_F(MeasurementTable, FindVarTellsWhyThereIsNoDescriptor) {
    void* variable = nullptr;
    EXPECT_EQ(HMAPI_DAQ_find_var(nullptr, &variable), -1);
    host().unknownVariable = -300;
    EXPECT_EQ(HMAPI_DAQ_find_var("x", &variable), -300);
    host().define("x", host_double::real);
    host().noDescriptor = true;
    EXPECT_EQ(HMAPI_DAQ_find_var("x", &variable), 46);
    host().noAddress = true;
    EXPECT_EQ(HMAPI_DAQ_find_var("x", &variable), 46);
    EXPECT_EQ(variable, nullptr);
    host().noDescriptor = host().noAddress = false;
    EXPECT_EQ(HMAPI_DAQ_find_var("x", &variable), 0);
    EXPECT_EQ(static_cast<DaqVariable*>(variable)->kind, host_double::real);
    delete static_cast<DaqVariable*>(variable);
}

TEST_F(MeasurementTable, MeasurementFileGetsALinePerCall) {
    open_logs();
    api_xcp_daq::addMeasurement("N", 0, 1, 0, 2, 0x10);
    api_xcp_daq::addComputeMethod("N", 0, 1, 0.5, 10, 2, 0, -100, 100);
    api_xcp_daq::addComputeMethod("unknown", 3, -1, -2, 1e9, 2, 5, 0.00005, 1e-9);
    api_xcp_daq::addMeasurement("N2", 3, 191, 1, 8, 255);
    EXPECT_EQ(measurements.text(), "N,0,1,0,2,16\n"
                                   "N,0,1,0.5000,10.0000,2,0,-100.0000,100.0000\n"
                                   "unknown,3,-1,-2.0000,1000000000.0000,2,5,0.0001,0.0000\n"
                                   "N2,3,191,1,8,255\n");
}

TEST_F(MeasurementTable, ComputeMethodReplacesTheConversionOfItsListsEntryOnly) {
    api_xcp_daq::addMeasurement("m", 1, 0, 0, 2, 0);
    api_xcp_daq::addComputeMethod("m", 0, 1, 2, 3, 4, 5, 6, 7);
    EXPECT_EQ(entry(1, 0, 0).factor, 0.0);
    api_xcp_daq::addComputeMethod("m", 1, 9, 9, 9, 9, 9, 9, 9);
    api_xcp_daq::addComputeMethod("m", 1, 1, 2, 3, 4, 5, 6, 7);
    const odt_table_entry& e = entry(1, 0, 0);
    EXPECT_EQ(std::tuple(e.computeInt1, e.factor, e.offset, e.computeInt2, e.byteOrder,
                         e.lowerLimit, e.upperLimit),
              std::tuple(1, 2.0, 3.0, 4, 5, 6.0, 7.0));
    EXPECT_EQ(bytes(1, 0, 0), std::pair(2, 3));
}

TEST_F(MeasurementTable, ListsOutsideZeroToThreeAreRefusedWithoutATrace) {
    open_logs();
    for (const int index : {0, -1})
        EXPECT_THROW(api_xcp_daq::getHalVarVecPtr(2, index), std::out_of_range);
    for (const int list :
         {-1, 4, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        api_xcp_daq::addMeasurement("m", list, 0, 0, 2, 0);
        api_xcp_daq::addComputeMethod("m", list, 1, 2, 3, 4, 5, 6, 7);
        EXPECT_EQ(api_xcp_daq::getNumOfHVars(list), 0);
        EXPECT_THROW(api_xcp_daq::getHalVarVecPtr(list, 0), std::out_of_range);
    }
    EXPECT_EQ(measurements.text(), "");
}

} // namespace
