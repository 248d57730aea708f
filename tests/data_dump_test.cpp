// Text out and in: report, numbers, end of logging, frame dump, replay.

#include "api_xcp_daq.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <ctime>
#include <locale>
#include <sstream>

namespace {

using Bytes = std::vector<std::uint8_t>;

class Logs : public testing::Test {
  protected:
    api_xcp_daq object;
    TemporaryFile log;
    TemporaryFile measurements;

    Logs() { open(); }
    void open() {
        appData.logFile = std::ofstream(log.path());
        appData.measurementFile = std::ofstream(measurements.path());
        appData.logEnabled = true;
    }
};

TEST_F(Logs, TheReportHasTwentyTwoLinesWhateverIsConfigured) {
    appData.specFileName = "engine.spec";
    appData.specFilePath = "/specs/";
    appData.daqCount = 1;
    appData.serverName = "192.0.2.10";
    appData.serverPort = 5555;
    appData.daqList[1].daqName = "fast";
    appData.daqList[1].daqResource = "DAQ";
    appData.daqList[1].triggerName = "event";
    api_xcp_daq::dumpInfo();
    appData.logEnabled = false;
    api_xcp_daq::dumpInfo();
    const std::string empty = " DAQ Name    :  \n DAQ Resource:  \n DAQ TriggerName :  \n"
                              " MeasureMent List information: \n";
    EXPECT_EQ(log.text(), "engine.spec\n/specs/\nDAQ Count 1\n"
                          "Server IP/Host Name: 192.0.2.10 Port: 5555\n"
                          "FilePath: /specs/\nspecFileName engine.spec\n" +
                              empty +
                              " DAQ Name    : fast \n DAQ Resource: DAQ \n"
                              " DAQ TriggerName : event \n MeasureMent List information: \n" +
                              empty + empty);
}

class GroupingComma : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    std::string do_grouping() const override { return "\1"; }
};

TEST_F(Logs, HaveTheSameNumbersInWhateverLocaleTheTaskHasSet) {
    std::string text = "@XCP_SERVER\nhost:5555\n@LIST1\nl DAQ t\n";
    for (int i = 0; i < 10; ++i)
        text += "m tag -\n";
    const TemporaryFile spec(text);
    const auto written = [&] {
        const std::locale locale = appData.logFile.getloc();
        api_xcp_daq::readSpecs(spec.path().c_str());
        appData.daqCount = 10;
        api_xcp_daq::dumpInfo();
        api_xcp_daq::addMeasurement("m", 0, 10, 0, 10, 16);
        api_xcp_daq::addMeasurement("m", 0, 10, 20, 10, 16);
        api_xcp_daq::addComputeMethod("m", 0, 10, 10, 10, 10, 10, 10, 10);
        EXPECT_EQ(appData.logFile.getloc(), locale);
        EXPECT_EQ(appData.measurementFile.getloc(), locale);
        appData.logFile.flush();
        return log.text() + measurements.text();
    };
    const std::string plain = written();

    const std::locale locale(std::locale::classic(), new GroupingComma);
    open();
    appData.logFile.imbue(locale);
    appData.measurementFile.imbue(locale);
    EXPECT_EQ(written(), plain);

    std::locale::global(locale);
    open(); // streams in place of the former
    EXPECT_EQ(written(), plain);
}

// ---- end of logging ----

std::string date_and_time(std::time_t time) {
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%d-%m-%Y %H-%M-%S", &parts);
    return text;
}

TEST_F(Logs, CloseWithTheirLastLinesInLocalTime) {
    // A day from Greenwich, on the side where the day's number is not the month's.
    std::time_t time = std::time(nullptr);
    std::time_t shift = std::time_t{24} * 60 * 60;
    if (const std::string date = date_and_time(time + shift);
        date.substr(0, 2) == date.substr(3, 2))
        shift = -shift;
    setenv("TZ", shift > 0 ? "East-24" : "West24", 1);
    tzset();
    EXPECT_EQ(api_xcp_daq::startlog(), 0);
    EXPECT_TRUE(appData.logEnabled);
    appData.logFile << "x";
    api_xcp_daq::stoplog();
    const auto expected = [&] { return "x\nStopped Logging" + date_and_time(time + shift) + "\n"; };
    while (log.text() != expected() && time < std::time(nullptr))
        ++time;
    EXPECT_EQ(log.text(), expected());
    EXPECT_EQ(measurements.text(), "---------\n");
    EXPECT_FALSE(appData.logEnabled || appData.logFile.is_open() ||
                 appData.measurementFile.is_open());
}

TEST_F(Logs, StayAsTheyAreWhenTheyAreOffOrHaveFailed) {
    appData.logEnabled = false;
    api_xcp_daq::stoplog();
    EXPECT_TRUE(appData.logFile.is_open() && appData.measurementFile.is_open());
    appData.logEnabled = true;
    appData.measurementFile.setstate(std::ios::badbit);
    appData.logFile.close();
    api_xcp_daq::stoplog();
    EXPECT_TRUE(appData.measurementFile.is_open());
    EXPECT_EQ(log.text() + measurements.text(), "");
    EXPECT_FALSE(appData.logEnabled);
}

// ---- frame dump ----

TEST(FrameDump, AppendsToTheFileOfTheProcess) {
    const std::string path = "/tmp/api_xcp_frame_daq_" + std::to_string(getpid()) + ".txt";
    std::filesystem::create_directory(path);
    EXPECT_FALSE(api_xcp_daq::openFrameDataDump());
    EXPECT_TRUE(appData.frameDumpFile.fail());
    EXPECT_TRUE(api_xcp_daq::closeFrameDataDump());
    std::filesystem::remove(path);
    std::ofstream(path) << "old ";
    for (const char* text : {"one ", "two ", "three"}) {
        EXPECT_TRUE(api_xcp_daq::openFrameDataDump());
        EXPECT_TRUE(api_xcp_daq::openFrameDataDump());
        appData.frameDumpFile << text;
        EXPECT_TRUE(api_xcp_daq::closeFrameDataDump());
        EXPECT_FALSE(appData.frameDumpFile.is_open());
    }
    std::ifstream file(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "old one two three");
    std::filesystem::remove(path);
}

// ---- replay ----

Bytes next_frame() {
    Bytes frame = {0xEE};
    const std::int64_t result = api_xcp_daq::readFrameData(&frame, 1);
    EXPECT_EQ(result + 1, static_cast<std::int64_t>(frame.size()));
    EXPECT_EQ(frame.at(0), 0xEE) << "appended, never cleared";
    frame.erase(frame.begin());
    return frame;
}

TEST(Replay, ReadsRecordsAsTheyStand) {
    struct Case {
        const char* what;
        std::string text;
        std::vector<Bytes> frames; // and then nothing more
    };
    const Case cases[] = {
        {"several lines, any case",
         "18 \n0,1,2,3,4,5,6,7,8,9,a,B,c,d,e,f\nfe,FF\n1 \n5\n",
         {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 0xFE, 0xFF}, {5}}},
        {"a whole line, but 16 values of it at most",
         "3 \n1,2,3,4,5\n5 \n1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1\n",
         {{1, 2, 3, 4, 5}, Bytes(16, 1)}},
        {"a length that says nothing takes one line",
         "0 \n1,2\n-7 \n3\nlength\n4,5\n",
         {{1, 2}, {3}, {4, 5}}},
        {"values as their format reads them",
         "6 \n1ff, 0x2,3 ,9\r\n\nxyz\n4\r\n5,6\n2 text behind\n1,2\n",
         {{0xFF, 2, 3, 4, 5, 6}, {1, 2}}},
        {"out of step after an empty line", "1 \n5\n\n2 \n6,7\n", {{5}, {2}}},
        {"a file that ends early", "4 \n1,2", {{1, 2}}},
        {"a last length line without a line feed", "1 \n5\n9", {{5}}},
    };
    for (const Case& c : cases) {
        const TemporaryFile file(c.text);
        appData.frameReplayFile = std::ifstream(file.path());
        ASSERT_TRUE(api_xcp_daq::openReadFrameData()) << "a file that is open stays";
        for (const Bytes& frame : c.frames)
            EXPECT_EQ(next_frame(), frame) << c.what;
        EXPECT_TRUE(next_frame().empty() && next_frame().empty()) << c.what;
        EXPECT_TRUE(appData.frameReplayFile.eof());
    }
}

class FailsAfterItsText : public std::stringbuf {
    using std::stringbuf::stringbuf;
    int_type underflow() override { throw std::runtime_error("input/output error"); }
};

TEST(Replay, AFileThatFailsEndsThere) {
    EXPECT_TRUE(next_frame().empty()) << "nothing was opened yet";
    FailsAfterItsText text("1 \n9\n20 \n1,2,3\n");
    static_cast<std::ios&>(appData.frameReplayFile).rdbuf(&text);
    for (const Bytes& frame : {Bytes{9}, Bytes{1, 2, 3}, Bytes{}, Bytes{}})
        EXPECT_EQ(next_frame(), frame);
}

} // namespace
