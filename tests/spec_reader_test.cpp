// The spec file through a scripted parser: what is asked for, which results count, what is written.

#include "api_xcp_daq.h"
#include "host_double.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

using host_double::host;
using host_double::Line;

namespace {

class SpecReader : public testing::Test {
  protected:
    api_xcp_daq object;
    TemporaryFile log;
    TemporaryFile spec; // the scripted parser delivers its lines

    SpecReader() {
        appData.logFile.open(log.path());
        appData.logEnabled = true;
        section("@REG_NAME", {{1, "xcpdaq"}});
        section("@XCP_SERVER", {{1, "192.0.2.10:700"}});
        section("@A2L_FILE", {{1, "engine.a2l"}});
        section("@A2L_FILEPATH", {{1, "/specs/a2l/"}});
    }

    static void section(const std::string& key, std::deque<Line> lines) {
        host().sections[key] = std::move(lines);
    }
    bool read() { return api_xcp_daq::readSpecs(spec.path().c_str()); }

    // What is in the log when the usual closing message is taken away.
    std::string messages(int measurements = 0) {
        appData.logFile.flush();
        std::string text = log.text();
        const std::string end = " Found Measurements: " + std::to_string(measurements) + "\n";
        if (!text.ends_with(end))
            return "no closing message: " + text;
        return text.substr(0, text.size() - end.size());
    }
    static std::string name(std::size_t list, std::size_t index) {
        return appData.daqList[list].measurementAttrs.nameList.at(index);
    }
};

TEST_F(SpecReader, ReadsAllSections) {
    section("@LIST1", {{1, "fast10ms DAQ event10ms"},
                       {1, "engSpeed tagA -"},
                       {1, "coolantTemp tagB hostCoolant 4"},
                       {1, "$"},
                       {1, "never read -"}});
    section("@LIST3", {{1, "stim STIM event1 ignored"}, {1, "$"}});
    section("@LIST5", {{1, "five DAQ event"}});
    ASSERT_TRUE(read());
    EXPECT_STREQ(Registered_name, "xcpdaq");
    EXPECT_EQ(appData.registeredName, "xcpdaq");
    EXPECT_EQ(appData.serverName, "192.0.2.10");
    EXPECT_EQ(appData.serverPort, 700);
    EXPECT_EQ(appData.a2lFileName, "engine.a2l");
    EXPECT_EQ(appData.a2lFilePath, "/specs/a2l/");
    EXPECT_EQ(appData.daqCount, 2);
    EXPECT_EQ(appData.daqList[0].daqName + appData.daqList[0].daqResource +
                  appData.daqList[0].triggerName,
              "fast10msDAQevent10ms");
    EXPECT_EQ(appData.daqList[2].daqResource, "STIM");
    EXPECT_EQ(appData.daqList[1].daqName, "");
    ASSERT_EQ(api_xcp_daq::getNumOfHVars(0), 2);
    EXPECT_STREQ(api_xcp_daq::getHalVarVecPtr(0, 0)->varTag, "tagA");
    EXPECT_STREQ(api_xcp_daq::getHalVarVecPtr(0, 0)->varName, "engSpeed");
    EXPECT_EQ(api_xcp_daq::getHalVarVecPtr(0, 0)->varOption, 2);
    EXPECT_EQ(name(0, 1), "hostCoolant");
    EXPECT_EQ(api_xcp_daq::getHalVarVecPtr(0, 1)->varOption, 4);
    EXPECT_EQ(messages(2), "");
}

TEST_F(SpecReader, ASecondReadAppends) {
    for (int round = 1; round <= 2; ++round) {
        section("@REG_NAME", {{1, "xcpdaq"}});
        section("@XCP_SERVER", {{1, "h 1"}});
        section("@LIST1", {{1, "l DAQ t"}, {1, "m tag -"}, {1, "$"}});
        ASSERT_TRUE(read());
        EXPECT_EQ(appData.daqCount, round);
        EXPECT_EQ(api_xcp_daq::getNumOfHVars(0), round);
    }
    EXPECT_TRUE(log.text().empty() ||
                messages(1).find("Found Measurements: 1") != std::string::npos);
}

TEST_F(SpecReader, AFileThatIsNotThereIsTold) {
    EXPECT_FALSE(api_xcp_daq::readSpecs("/nonexistent/x.spec"));
    appData.logFile.flush();
    EXPECT_EQ(log.text(), "couldn't open spec_file -/nonexistent/x.spec");
}

TEST_F(SpecReader, TheRegistrationNamesLineCountsOnlyAboveZero) {
    section("@REG_NAME", {{0, "late"}});
    EXPECT_TRUE(read());
    section("@REG_NAME", {{1, "$x"}});
    section("@XCP_SERVER", {{1, "h 1"}});
    EXPECT_TRUE(read());
    EXPECT_EQ(appData.registeredName, "");
}

TEST_F(SpecReader, ABlankRegistrationNameIsTold) {
    section("@REG_NAME", {{1, "  "}});
    EXPECT_TRUE(read());
    EXPECT_EQ(messages(), "@REG_NAME expected, but found    ");
}

TEST_F(SpecReader, TheServersLineCountsFromZeroUp) {
    section("@XCP_SERVER", {{0, "$host, 12x"}});
    EXPECT_TRUE(read());
    EXPECT_EQ(appData.serverName, "$host");
    EXPECT_EQ(appData.serverPort, 12);
    section("@XCP_SERVER", {{1, "\n"}});
    EXPECT_TRUE(read());
    EXPECT_EQ(appData.serverName, "");
    EXPECT_EQ(appData.serverPort, 0);
}

TEST_F(SpecReader, WithoutAServerTheReadEnds) {
    host().sections.erase("@XCP_SERVER");
    section("@LIST1", {{1, "l DAQ t"}, {1, "$"}});
    EXPECT_FALSE(read());
    appData.logFile.flush();
    EXPECT_EQ(log.text(), "@XCP_SERVER expected, but found xcpdaq ");
    EXPECT_EQ(appData.registeredName, "xcpdaq");
    EXPECT_EQ(appData.daqCount, 0);
}

TEST_F(SpecReader, TheA2lLinesDifferInWhatTheyAccept) {
    section("@A2L_FILE", {{1, "$"}});
    section("@A2L_FILEPATH", {{1, "$"}});
    EXPECT_TRUE(read());
    EXPECT_EQ(appData.a2lFileName, "$");
    EXPECT_EQ(appData.a2lFilePath, "");
    EXPECT_EQ(messages(), "@A2L_FILEPATH expected found $ ");
}

TEST_F(SpecReader, MissingA2lSectionsRunTogetherInTheLog) {
    section("@A2L_FILE", {{0, "last.a2l"}});
    host().sections.erase("@A2L_FILEPATH");
    EXPECT_TRUE(read());
    EXPECT_EQ(appData.a2lFileName, "");
    EXPECT_EQ(messages(),
              "@A2L_FILE expected found last.a2l @A2L_FILEPATH expected found last.a2l ");
}

TEST_F(SpecReader, AShortHeaderIsToldAndItsMeasurementsStillCount) {
    section("@LIST1", {{1, "short DAQ"}, {1, "m tag -"}, {1, "$"}});
    section("@LIST2", {{0, "x"}, {-1, ""}});
    EXPECT_TRUE(read());
    EXPECT_EQ(appData.daqCount, 0);
    EXPECT_EQ(appData.daqList[0].daqName, "");
    EXPECT_EQ(name(0, 0), "m");
    EXPECT_EQ(messages(1), "Expected at least 3 tokens on received 2 after \n"
                           "Expected at least 3 tokens on received 1 after @LIST1\n");
}

TEST_F(SpecReader, AHeaderThatBeginsWithADollarHasNoMeasurements) {
    section("@LIST1", {{1, "$ DAQ trigger"}, {1, "m tag -"}});
    section("@LIST2", {{0, "$ DAQ trigger"}, {1, "m tag -"}});
    EXPECT_TRUE(read());
    EXPECT_EQ(appData.daqList[0].daqName, "$") << "a line above zero is split all the same";
    EXPECT_EQ(appData.daqList[1].daqName, "") << "a last line is not";
    EXPECT_EQ(appData.daqCount, 1);
    EXPECT_EQ(messages(), "Expected at least 3 tokens on received 0 after @LIST1\n");
}

TEST_F(SpecReader, AnUnknownResourceBecomesDaq) {
    section("@LIST1", {{1, "l daq t"}, {1, "$"}});
    EXPECT_TRUE(read());
    EXPECT_EQ(appData.daqList[0].daqResource, "DAQ");
    EXPECT_EQ(messages(), "Incorrect Resource choice: DAQ or STIM? found daq\nDefaulting to DAQ\n");
}

TEST_F(SpecReader, ALastLineWithoutALineEndIsTheListsLast) {
    section("@LIST1", {{1, "l DAQ t"}, {1, "one two"}, {0, "m tag -"}, {1, "n tag -"}});
    EXPECT_TRUE(read());
    EXPECT_EQ(api_xcp_daq::getNumOfHVars(0), 1);
    EXPECT_EQ(messages(1), "Expected 3 tokens only received 2\n");
}

TEST_F(SpecReader, LongWordsAreCut) {
    const std::string word(300, 'w');
    section("@REG_NAME", {{1, word}});
    section("@A2L_FILE", {{1, word}});
    section("@LIST1", {{1, "l DAQ t"}, {1, word + " " + word + " -"}, {1, "$"}});
    EXPECT_TRUE(read());
    EXPECT_EQ(appData.registeredName, word.substr(0, 49));
    EXPECT_EQ(appData.a2lFileName, word.substr(0, 255));
    const halVarInfo* line = api_xcp_daq::getHalVarVecPtr(0, 0);
    EXPECT_EQ(std::string(line->varTag, 16), word.substr(0, 16));
    EXPECT_EQ(std::string(line->varName, 80), word.substr(0, 80));
    EXPECT_EQ(name(0, 0), word.substr(0, 80));
}

TEST_F(SpecReader, NothingIsWrittenWhileLoggingIsOff) {
    appData.logEnabled = false;
    section("@LIST1", {{1, "l daq t"}, {1, "x"}, {1, "m tag -"}, {1, "$"}});
    EXPECT_TRUE(read());
    EXPECT_EQ(api_xcp_daq::getNumOfHVars(0), 1);
    appData.logFile.flush();
    EXPECT_EQ(log.text(), "");
}

TEST_F(SpecReader, SetSpecFileNameStoresBothTextsEvenWhenItFails) {
    const std::string directory = spec.path().substr(0, spec.path().rfind('/'));
    const std::string file = spec.path().substr(directory.size() + 1);
    EXPECT_TRUE(object.setSpecFileName(file, directory + "/"));
    EXPECT_TRUE(appData.specFile.is_open());
    EXPECT_FALSE(object.setSpecFileName(file, directory));
    EXPECT_FALSE(appData.specFile.is_open());
    EXPECT_EQ(appData.specFilePath + appData.specFileName, directory + file);
}

} // namespace
