// Text out and in: report, end of logging, frame dump, replay.

#include "api_xcp_daq.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <locale>
#include <regex>

#include <unistd.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

// ---- report ----

TEST(Report, HasTwentyTwoLinesWhateverIsConfigured) {
    const api_xcp_daq object;
    const TemporaryFile log;
    appData.logFile.open(log.path());
    api_xcp_daq::dumpInfo();
    EXPECT_EQ(log.text(), "") << "logging is off";

    appData.logEnabled = true;
    appData.specFileName = "engine.spec";
    appData.specFilePath = "/specs/";
    appData.daqCount = 1;
    appData.serverName = "192.0.2.10";
    appData.serverPort = 5555;
    appData.daqList[1].daqName = "fast";
    appData.daqList[1].daqResource = "DAQ";
    appData.daqList[1].triggerName = "event";
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
    std::string do_grouping() const override { return "\3"; }
};

TEST(Report, TheHostsLocaleDoesNotReachTheLogs) {
    appData.logFile.imbue(std::locale(std::locale::classic(), new GroupingComma));
    appData.measurementFile.imbue(appData.logFile.getloc());
    const api_xcp_daq object;
    const TemporaryFile log;
    const TemporaryFile measurements;
    appData.logFile.open(log.path());
    appData.measurementFile.open(measurements.path());
    appData.logEnabled = true;
    appData.serverPort = 5555;
    api_xcp_daq::dumpInfo();
    api_xcp_daq::addComputeMethod("m", 0, 1000, 1.5, 2000, 0, 0, 0, 0);
    EXPECT_NE(log.text().find("Port: 5555\n"), std::string::npos);
    EXPECT_EQ(measurements.text(), "m,0,1000,1.5000,2000.0000,0,0,0.0000,0.0000\n");
}

// ---- end of logging ----

class StopLog : public testing::Test {
  protected:
    api_xcp_daq object;
    TemporaryFile log;
    TemporaryFile measurements;

    StopLog() {
        appData.logFile.open(log.path());
        appData.measurementFile.open(measurements.path());
        appData.logEnabled = true;
    }
};

TEST_F(StopLog, ClosesBothLogsWithTheirLastLines) {
    EXPECT_EQ(api_xcp_daq::startlog(), 0);
    EXPECT_TRUE(appData.logEnabled && appData.logFile.is_open() &&
                appData.measurementFile.is_open());
    appData.logFile << "x";
    api_xcp_daq::stoplog();
    EXPECT_EQ(measurements.text(), "---------\n");
    EXPECT_TRUE(std::regex_match(
        log.text(), std::regex("x\nStopped Logging\\d{2}-\\d{2}-20\\d{2} \\d{2}-\\d{2}-\\d{2}\n")));
    EXPECT_FALSE(appData.logEnabled || appData.logFile.is_open() ||
                 appData.measurementFile.is_open());
    const std::string before = log.text();
    api_xcp_daq::stoplog();
    EXPECT_EQ(log.text(), before);
}

TEST_F(StopLog, DoesNothingWhileLoggingIsOff) {
    appData.logEnabled = false;
    api_xcp_daq::stoplog();
    EXPECT_TRUE(appData.logFile.is_open() && appData.measurementFile.is_open());
    EXPECT_EQ(log.text() + measurements.text(), "");
}

TEST_F(StopLog, LeavesALogThatHasFailedAlone) {
    appData.measurementFile.setstate(std::ios::badbit);
    appData.logFile.close();
    api_xcp_daq::stoplog();
    EXPECT_TRUE(appData.measurementFile.is_open());
    EXPECT_EQ(measurements.text(), "");
    EXPECT_FALSE(appData.logEnabled);
}

// ---- frame dump ----

class FrameDump : public testing::Test {
  protected:
    const std::string path = "/tmp/api_xcp_frame_daq_" + std::to_string(getpid()) + ".txt";
    ~FrameDump() override { std::filesystem::remove_all(path); }

    std::string text() const {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
};

TEST_F(FrameDump, AppendsToTheProcesssFile) {
    std::ofstream(path) << "old ";
    EXPECT_TRUE(api_xcp_daq::closeFrameDataDump());
    EXPECT_TRUE(api_xcp_daq::openFrameDataDump());
    appData.frameDumpFile << "one ";
    EXPECT_TRUE(api_xcp_daq::openFrameDataDump());
    appData.frameDumpFile << "two ";
    EXPECT_TRUE(api_xcp_daq::closeFrameDataDump());
    EXPECT_FALSE(appData.frameDumpFile.is_open());
    EXPECT_TRUE(api_xcp_daq::openFrameDataDump());
    appData.frameDumpFile << "three";
    EXPECT_TRUE(api_xcp_daq::closeFrameDataDump());
    EXPECT_EQ(text(), "old one two three");
}

TEST_F(FrameDump, AFailedOpenLeavesTheStreamFailedAndCanBeTriedAgain) {
    std::filesystem::create_directory(path);
    EXPECT_FALSE(api_xcp_daq::openFrameDataDump());
    EXPECT_TRUE(appData.frameDumpFile.fail());
    EXPECT_FALSE(appData.frameDumpFile.is_open());
    std::filesystem::remove(path);
    EXPECT_TRUE(api_xcp_daq::openFrameDataDump());
    EXPECT_TRUE(appData.frameDumpFile.good());
}

// ---- replay ----

Bytes next_frame() {
    Bytes frame;
    const std::int64_t result = api_xcp_daq::readFrameData(&frame, 1);
    EXPECT_EQ(result, static_cast<std::int64_t>(frame.size()));
    return frame;
}

TEST(Replay, ReadsRecordsAsTheyStand) {
    struct Case {
        const char* what;
        std::string text;
        std::vector<Bytes> frames; // and then nothing more
    };
    const std::vector<Case> cases = {
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
    const TemporaryFile file("1 \n5\n");
    appData.frameReplayFile = std::ifstream(file.path());
    Bytes frame = {0xEE};
    EXPECT_EQ(api_xcp_daq::readFrameData(&frame, 0), 1);
    EXPECT_EQ(frame, Bytes({0xEE, 5})) << "appended, never cleared";
}

TEST(Replay, AFileThatCannotBeReadEndsAtOnce) {
    EXPECT_TRUE(next_frame().empty()) << "nothing was opened yet";
    appData.frameReplayFile.clear();
    appData.frameReplayFile.open("/tmp"); // a directory opens, but every read fails
    EXPECT_TRUE(next_frame().empty());
    EXPECT_TRUE(next_frame().empty());
}

// Made for one test, and only when there is nothing in its place.
class FixedReplayFile {
  public:
    const std::filesystem::path path = "/specs/api_xcp_frame_daq_data.txt";

    FixedReplayFile() {
        std::error_code error;
        folderMade_ = std::filesystem::create_directory(path.parent_path(), error);
        mayMake_ = !std::filesystem::exists(path) && access(path.parent_path().c_str(), W_OK) == 0;
    }
    ~FixedReplayFile() {
        std::error_code error;
        if (mayMake_)
            std::filesystem::remove(path, error);
        if (folderMade_)
            std::filesystem::remove(path.parent_path(), error);
    }
    bool may_make() const { return mayMake_; }

  private:
    bool folderMade_ = false;
    bool mayMake_ = false;
};

TEST(Replay, TheFixedFile) {
    const FixedReplayFile fixed;
    if (!fixed.may_make())
        GTEST_SKIP() << fixed.path << " is there already or cannot be made";
    EXPECT_FALSE(api_xcp_daq::openReadFrameData());
    EXPECT_TRUE(appData.frameReplayFile.fail());
    EXPECT_TRUE(next_frame().empty());
    std::ofstream(fixed.path) << "2 \n1,2\n";
    EXPECT_TRUE(api_xcp_daq::openReadFrameData());
    EXPECT_EQ(next_frame(), Bytes({1, 2}));
    EXPECT_TRUE(next_frame().empty());
    EXPECT_TRUE(api_xcp_daq::openReadFrameData());
    EXPECT_TRUE(next_frame().empty()) << "it is not rewound";
}

} // namespace
