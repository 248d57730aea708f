// The spec file through a scripted parser: what is asked for, which results count, what is written.

#include "api_xcp_daq.h"
#include "host_double.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

using host_double::host;
using host_double::Line;

namespace {

using Sections = std::map<std::string, std::deque<Line>>;

class SpecReader : public testing::Test {
  protected:
    api_xcp_daq object;
    TemporaryFile log;
    TemporaryFile spec; // the scripted parser delivers its lines

    SpecReader() {
        appData.logFile.open(log.path());
        appData.logEnabled = true;
        host().sections = {{"@REG_NAME", {{1, "xcpdaq"}}},
                           {"@XCP_SERVER", {{1, "192.0.2.10:700"}}},
                           {"@A2L_FILE", {{1, "engine.a2l"}}},
                           {"@A2L_FILEPATH", {{1, "/specs/a2l/"}}}};
    }

    bool read(const Sections& changed = {}) {
        for (const auto& [key, lines] : changed)
            host().sections[key] = lines;
        return api_xcp_daq::readSpecs(spec.path().c_str());
    }
    std::string messages() {
        appData.logFile.flush();
        return log.text();
    }
};

// What the record holds, as one line; of the lists, those that anything was read for.
std::string record() {
    std::string text = appData.registeredName + " " + appData.serverName + ":" +
                       std::to_string(appData.serverPort) + " " + appData.a2lFilePath +
                       appData.a2lFileName + " " + std::to_string(appData.daqCount);
    for (const xcpDAQList& list : appData.daqList) {
        const int number = static_cast<int>(list.listNumber) - 1;
        const auto& names = list.measurementAttrs.nameList;
        if (list.daqName.empty() && names.empty())
            continue;
        text += " | " + std::to_string(list.listNumber) + " " + list.daqName + " " +
                list.daqResource + " " + list.triggerName;
        EXPECT_EQ(api_xcp_daq::getNumOfHVars(number), static_cast<int>(names.size()));
        for (std::size_t i = 0; i < names.size(); ++i) {
            const halVarInfo& line = *api_xcp_daq::getHalVarVecPtr(number, static_cast<int>(i));
            EXPECT_EQ(names[i], line.varName);
            text += ", " + names[i] + " " + line.varTag + " " + std::to_string(line.varOption);
        }
    }
    return text;
}

struct Reading {
    const char* name;
    Sections changed; // a section without lines is missing
    std::string record;
    std::string log;
    bool result = true;
};

std::string measurements(int count) {
    return " Found Measurements: " + std::to_string(count) + "\n";
}
const std::string usual = "xcpdaq 192.0.2.10:700 /specs/a2l/engine.a2l ";
const std::string behind_name = " 192.0.2.10:700 /specs/a2l/engine.a2l 0";

const Reading readings[] = {
    {"AllSections",
     {{"@LIST1",
       {{1, "fast10ms DAQ event10ms"},
        {1, "engSpeed tagA -"},
        {1, "coolantTemp tagB hostCoolant 4"},
        {1, "$"},
        {1, "never read -"}}},
      {"@LIST3", {{1, "stim STIM event1 ignored"}, {1, "$"}}},
      {"@LIST5", {{1, "five DAQ event"}}}},
     usual +
         "2 | 1 fast10ms DAQ event10ms, engSpeed tagA 2, hostCoolant tagB 4 | 3 stim STIM event1",
     measurements(2)},
    {"ARegistrationNameAtTheEndOfTheFile",
     {{"@REG_NAME", {{0, "late"}}}},
     behind_name,
     measurements(0)},
    {"NoRegistrationName", {{"@REG_NAME", {{1, "$x"}}}}, behind_name, measurements(0)},
    {"ABlankRegistrationName",
     {{"@REG_NAME", {{1, "  "}}}},
     behind_name,
     "@REG_NAME expected, but found    " + measurements(0)},
    {"AServerAtTheEndOfTheFile",
     {{"@XCP_SERVER", {{0, "$host, 12x"}}}},
     "xcpdaq $host:12 /specs/a2l/engine.a2l 0",
     measurements(0)},
    {"ABlankServer",
     {{"@XCP_SERVER", {{1, "\n"}}}},
     "xcpdaq :0 /specs/a2l/engine.a2l 0",
     measurements(0)},
    {"NoServer",
     {{"@XCP_SERVER", {}}, {"@LIST1", {{1, "l DAQ t"}, {1, "$"}}}},
     "xcpdaq :0  0",
     "@XCP_SERVER expected, but found xcpdaq ",
     false},
    {"A2lSectionsThatBeginWithADollar",
     {{"@A2L_FILE", {{1, "$"}}}, {"@A2L_FILEPATH", {{1, "$"}}}},
     "xcpdaq 192.0.2.10:700 $ 0",
     "@A2L_FILEPATH expected found $ " + measurements(0)},
    {"NoA2lSections",
     {{"@A2L_FILE", {{0, "last.a2l"}}}, {"@A2L_FILEPATH", {}}},
     "xcpdaq 192.0.2.10:700  0",
     "@A2L_FILE expected found last.a2l @A2L_FILEPATH expected found last.a2l " + measurements(0)},
    {"ShortHeaders",
     {{"@LIST1", {{1, "short DAQ"}, {1, "m tag -"}, {1, "$"}}}, {"@LIST2", {{0, "x"}}}},
     usual + "0 | 1   , m tag 2",
     "Expected at least 3 tokens on received 2 after \n"
     "Expected at least 3 tokens on received 1 after @LIST1\n" +
         measurements(1)},
    {"HeadersThatBeginWithADollar", // a line above zero is split all the same, a last line is not
     {{"@LIST1", {{1, "$ DAQ trigger"}, {1, "m tag -"}}},
      {"@LIST2", {{0, "$ DAQ trigger"}, {1, "m tag -"}}}},
     usual + "1 | 1 $ DAQ trigger",
     "Expected at least 3 tokens on received 0 after @LIST1\n" + measurements(0)},
    {"AnUnknownResource",
     {{"@LIST1", {{1, "l daq t"}, {1, "$"}}}},
     usual + "1 | 1 l DAQ t",
     "Incorrect Resource choice: DAQ or STIM? found daq\nDefaulting to DAQ\n" + measurements(0)},
    {"AMeasurementAtTheEndOfTheFile",
     {{"@LIST1", {{1, "l DAQ t"}, {1, "one two"}, {0, "m tag -"}, {1, "n tag -"}}}},
     usual + "1 | 1 l DAQ t, m tag 2",
     "Expected 3 tokens only received 2\n" + measurements(1)},
};

class SpecReading : public SpecReader, public testing::WithParamInterface<Reading> {};

TEST_P(SpecReading, FillsTheRecordAndTheLog) {
    EXPECT_EQ(read(GetParam().changed), GetParam().result);
    EXPECT_EQ(record(), GetParam().record);
    EXPECT_EQ(messages(), GetParam().log);
    EXPECT_EQ(Registered_name, appData.registeredName);
}

INSTANTIATE_TEST_SUITE_P(Of, SpecReading, testing::ValuesIn(readings),
                         [](const auto& reading) { return std::string(reading.param.name); });

TEST_F(SpecReader, ASecondReadAppends) {
    const Sections list = {{"@XCP_SERVER", {{1, "h 1"}}},
                           {"@LIST1", {{1, "l DAQ t"}, {1, "m tag -"}, {1, "$"}}}};
    ASSERT_TRUE(read(list) && read(list));
    EXPECT_EQ(record(), "xcpdaq h:1 /specs/a2l/engine.a2l 2 | 1 l DAQ t, m tag 2, m tag 2");
}

TEST_F(SpecReader, AFileThatIsNotThereIsTold) {
    EXPECT_FALSE(api_xcp_daq::readSpecs("/nonexistent/x.spec"));
    EXPECT_EQ(messages(), "couldn't open spec_file -/nonexistent/x.spec");
}

TEST_F(SpecReader, LongWordsAreCut) {
    const std::string word(300, 'w');
    EXPECT_TRUE(read({{"@REG_NAME", {{1, word}}},
                      {"@A2L_FILE", {{1, word}}},
                      {"@LIST1", {{1, "l DAQ t"}, {1, word + " " + word + " -"}, {1, "$"}}}}));
    EXPECT_EQ(appData.registeredName, word.substr(0, 49));
    EXPECT_EQ(appData.a2lFileName, word.substr(0, 255));
    const halVarInfo* line = api_xcp_daq::getHalVarVecPtr(0, 0);
    EXPECT_EQ(std::string(line->varTag, 16), word.substr(0, 16));
    EXPECT_EQ(std::string(line->varName, 80), word.substr(0, 80));
    EXPECT_EQ(appData.daqList[0].measurementAttrs.nameList.at(0), word.substr(0, 80));
}

TEST_F(SpecReader, NothingIsWrittenWhileLoggingIsOff) {
    appData.logEnabled = false;
    EXPECT_TRUE(read({{"@LIST1", {{1, "l daq t"}, {1, "x"}, {1, "m tag -"}, {1, "$"}}}}));
    EXPECT_EQ(api_xcp_daq::getNumOfHVars(0), 1);
    EXPECT_EQ(messages(), "");
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
