// Spec files: which lines count, what they fill, what is told about them.

#include "api_xcp_daq.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

namespace {

// What the record holds, as one line; of the lists, those that anything was read for.
std::string record() {
    std::string text = appData.registeredName + " " + appData.serverName + ":" +
                       std::to_string(appData.serverPort) + " " + appData.a2lFilePath +
                       appData.a2lFileName + " " + std::to_string(appData.daqCount);
    for (int number = 0; number < 4; ++number) {
        const xcpDAQList& list = appData.daqList[static_cast<std::size_t>(number)];
        const auto& names = list.measurementAttrs.nameList;
        EXPECT_EQ(api_xcp_daq::getNumOfHVars(number), static_cast<int>(names.size()));
        if (list.daqName.empty() && names.empty())
            continue;
        text += " | " + std::to_string(number) + " " + list.daqName + " " + list.daqResource + " " +
                list.triggerName;
        for (std::size_t i = 0; i < names.size(); ++i) {
            const halVarInfo& line = *api_xcp_daq::getHalVarVecPtr(number, static_cast<int>(i));
            EXPECT_EQ(names[i], line.varName);
            text += ", " + names[i] + " " + line.varTag + " " + std::to_string(line.varOption);
        }
    }
    return text;
}

class SpecReader : public testing::Test {
  protected:
    api_xcp_daq object;
    TemporaryFile log;

    SpecReader() {
        appData.logFile.open(log.path());
        appData.logEnabled = true;
    }
    static bool read(const std::string& text) {
        const TemporaryFile spec(text);
        return api_xcp_daq::readSpecs(spec.path().c_str());
    }
    std::string messages() {
        appData.logFile.flush();
        return log.text();
    }
};

std::string measurements(int count) {
    return " Found Measurements: " + std::to_string(count) + "\n";
}

const std::string name = "@REG_NAME\nxcpdaq\n";
const std::string server = "@XCP_SERVER\n192.0.2.10:0700\n";
const std::string a2l = "@A2L_FILE\nengine.a2l\n@A2L_FILEPATH\n/specs/a2l/\n";
const std::string usual = name + server + a2l;

const std::string nameless = " 192.0.2.10:700 /specs/a2l/engine.a2l 0";
const std::string known = "xcpdaq 192.0.2.10:700 /specs/a2l/engine.a2l ";
const std::string short_header = "Expected at least 3 tokens on received ";

struct Reading {
    const char* name;
    std::string text, record, log;
    bool result = true;
};

const Reading readings[] = {
    {"AllSections",
     usual + "@LIST1\nfast10ms DAQ event10ms\nengSpeed tagA -\ncoolantTemp tagB hostCoolant 4\n$\n"
             "never read -\n@LIST3\nstim STIM event1 ignored\n$\n@LIST5\nfive DAQ event\n",
     known + "2 | 0 fast10ms DAQ event10ms, engSpeed tagA 2, hostCoolant tagB 4"
             " | 2 stim STIM event1",
     measurements(2)},
    {"ARegistrationNameAtTheEndOfTheFile", server + a2l + "@REG_NAME\nlate", nameless,
     measurements(0)},
    {"NoRegistrationName", server + a2l + "@REG_NAME\n$x\n", nameless, measurements(0)},
    {"ABlankRegistrationName", server + a2l + "@REG_NAME\n  \n", nameless,
     "@REG_NAME expected, but found    " + measurements(0)},
    {"AServerAtTheEndOfTheFile", name + a2l + "@XCP_SERVER\n$host, 12x",
     "xcpdaq $host:12 /specs/a2l/engine.a2l 0", measurements(0)},
    {"ABlankServer", name + a2l + "@XCP_SERVER\n\n", "xcpdaq :0 /specs/a2l/engine.a2l 0",
     measurements(0)},
    {"NoServer", name + a2l + "@LIST1\nl DAQ t\n$\n", "xcpdaq :0  0",
     "@XCP_SERVER expected, but found xcpdaq ", false},
    {"A2lSectionsThatBeginWithADollar", name + server + "@A2L_FILE\n$\n@A2L_FILEPATH\n$\n",
     "xcpdaq 192.0.2.10:700 $ 0", "@A2L_FILEPATH expected found $ " + measurements(0)},
    {"BlankA2lSections", name + server + "@A2L_FILE\n\n@A2L_FILEPATH\n\n",
     "xcpdaq 192.0.2.10:700  0", measurements(0)},
    {"NoA2lSections", name + server + "@A2L_FILE\nlast.a2l", "xcpdaq 192.0.2.10:700  0",
     "@A2L_FILE expected found last.a2l @A2L_FILEPATH expected found last.a2l " + measurements(0)},
    {"ShortHeaders", usual + "@LIST1\nshort DAQ\nm tag -\n$\n@LIST2\nx",
     known + "0 | 0   , m tag 2",
     short_header + "2 after \n" + short_header + "1 after @LIST1\n" + measurements(1)},
    // A line is split all the same, a last line is not.
    {"HeadersThatBeginWithADollar", usual + "@LIST1\n$ DAQ trigger\nm tag -\n@LIST2\n$ DAQ trigger",
     known + "1 | 0 $ DAQ trigger", short_header + "0 after @LIST1\n" + measurements(0)},
    {"AnUnknownResource", usual + "@LIST1\nl daq t\n$\n", known + "1 | 0 l DAQ t",
     "Incorrect Resource choice: DAQ or STIM? found daq\nDefaulting to DAQ\n" + measurements(0)},
    {"AMeasurementAtTheEndOfTheFile", usual + "@LIST1\nl DAQ t\none two\nm tag -",
     known + "1 | 0 l DAQ t, m tag 2", "Expected 3 tokens only received 2\n" + measurements(1)},
};

class SpecReading : public SpecReader, public testing::WithParamInterface<Reading> {};

int lowest_free_descriptor() {
    const int free = dup(STDOUT_FILENO);
    close(free);
    return free;
}

TEST_P(SpecReading, FillsTheRecordAndTheLog) {
    const int free = lowest_free_descriptor();
    EXPECT_EQ(read(GetParam().text), GetParam().result);
    EXPECT_EQ(lowest_free_descriptor(), free) << "the file was closed";
    EXPECT_EQ(record(), GetParam().record);
    EXPECT_EQ(messages(), GetParam().log);
    EXPECT_EQ(Registered_name, appData.registeredName);
}

INSTANTIATE_TEST_SUITE_P(Of, SpecReading, testing::ValuesIn(readings),
                         [](const auto& reading) { return std::string(reading.param.name); });

TEST_F(SpecReader, ASecondReadAppends) {
    const std::string text = usual + "@LIST1\nl DAQ t\nm tag -\n$\n";
    ASSERT_TRUE(read(text) && read(text));
    EXPECT_EQ(record(), known + "2 | 0 l DAQ t, m tag 2, m tag 2");
}

TEST_F(SpecReader, AFileThatIsNotThereIsTold) {
    EXPECT_FALSE(api_xcp_daq::readSpecs("/nonexistent/x.spec"));
    EXPECT_EQ(messages(), "couldn't open spec_file -/nonexistent/x.spec");
}

TEST_F(SpecReader, LongWordsAreCut) {
    const std::string word(300, 'w');
    EXPECT_TRUE(read(server + "@REG_NAME\n" + word + "\n@A2L_FILE\n" + word +
                     "\n@LIST1\nl DAQ t\n" + word + " " + word + " -\n$\n"));
    EXPECT_EQ(appData.registeredName, word.substr(0, 49));
    EXPECT_EQ(appData.a2lFileName, word.substr(0, 255));
    const halVarInfo* line = api_xcp_daq::getHalVarVecPtr(0, 0);
    EXPECT_EQ(std::string(line->varTag, 16), word.substr(0, 16));
    EXPECT_EQ(std::string(line->varName, 80), word.substr(0, 80));
    EXPECT_EQ(appData.daqList[0].measurementAttrs.nameList.at(0), word.substr(0, 80));
}

TEST_F(SpecReader, NothingIsWrittenWhileLoggingIsOff) {
    appData.logEnabled = false;
    EXPECT_TRUE(read(server + "@LIST1\nl daq t\nx\nm tag -\n$\n"));
    EXPECT_EQ(api_xcp_daq::getNumOfHVars(0), 1);
    EXPECT_EQ(messages(), "");
}

TEST_F(SpecReader, SetSpecFileNameStoresBothTextsEvenWhenItFails) {
    const std::string directory = log.path().substr(0, log.path().rfind('/'));
    const std::string file = log.path().substr(directory.size() + 1);
    EXPECT_TRUE(object.setSpecFileName(file, directory + "/"));
    EXPECT_TRUE(appData.specFile.is_open());
    EXPECT_FALSE(object.setSpecFileName(file, directory));
    EXPECT_FALSE(appData.specFile.is_open());
    EXPECT_EQ(appData.specFilePath + appData.specFileName, directory + file);
}

} // namespace
