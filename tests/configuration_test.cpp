// Registration, the object's life, and the configuration with what is told about it.

#include "api_xcp_daq.h"
#include "host_double.h"
#include "table.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <climits>
#include <future>
#include <locale>
#include <memory>
#include <sstream>

using namespace std::chrono_literals;
using host_double::host;

namespace {

TEST(Registration, CallsTheHostInOrderUpToTheFailure) {
    const std::string located = "link_to_memory 1\n_setsid\njoin_layer 3\nget_TLS_tid\n"
                                "_qnx_name_locate 0 bench 0 1\n";
    const std::string copied = located + "copyn xcp_daq/xcp_daq_master_init 111 bench 50\n";
    const std::string attached = "event_attach config 50\n";
    const std::string named = attached + "SrrNameAttach 0 bench\n";
    const std::string error = "log_error xcp_daq/xcp_daq_master_init ";
    const std::string held = "101 66 0 aborting - there is already a <bench> version running\n";
    const std::string noName = "145 70 0 aborting - couldn't register <bench> name\n";
    const std::string noEvent = "129 2 -92 couldn't attach to global config-status=-5\n";
    const std::tuple<host_double::Answers, short, std::int32_t, std::string> cases[] = {
        {{.running = 0}, 5, -1, "link_to_memory 1\n"},
        {{.nameHolder = 0}, 5, -1, located + error + held},
        {{.nameHolder = -2}, 5, -1, located + error + held},
        {{.nameId = 7}, 1, 7, copied + "setprio 0 1\n" + named},
        {{.nameId = 7}, 19, 7, copied + "setprio 0 19\n" + named},
        {{.nameId = 7}, 0, 7, copied + named},
        {{.nameId = 7}, -1, 7, copied + named},
        {{.nameId = -300}, 20, -300, copied + named},
        {{.nameId = -1}, 0, -1, copied + named + error + noName},
        {{.eventStatus = -5}, 0, -1, copied + attached + error + noEvent},
    };
    for (const auto& [answers, priority, result, calls] : cases) {
        host().answers = answers;
        host().calls.clear();
        int id = 0, event = 0, ignored = 99;
        const auto register_task = [&](short wanted) {
            char name[] = "bench";
            id = xcp_daq_master_init(name, wanted, &event, nullptr, &ignored, nullptr);
        };
        const bool running = answers.running != 0;
        EXPECT_EQ(output_of(register_task, priority),
                  running ? "" : "\n Halmor must be running to use this task \n");
        EXPECT_EQ(id, result);
        EXPECT_EQ(host().calls, calls);
        EXPECT_EQ(xcp_master_pid, running ? 4711 : 0);
        EXPECT_EQ(event, calls.find(attached) == std::string::npos ? 0 : 17);
        EXPECT_EQ(ignored, 99);
    }
    EXPECT_EQ(Registered_name[0], '\0') << "the spec file's name is another object";
}

TEST(Facade, TheFirstOfSeveralConstructionsReservesAndNumbersTheLists) {
    appData.daqCount = 9;
    appData.logEnabled = true;
    const auto construct = [] {
        const api_xcp_daq object;
        std::int64_t number = 0;
        for (const xcpDAQList& list : appData.daqList) {
            EXPECT_EQ(list.listNumber, ++number);
            EXPECT_EQ(list.measurementAttrs.nameList.capacity(), 300U);
            EXPECT_EQ(list.halVarList.capacity(), 300U);
        }
        EXPECT_EQ(appData.measurementList.capacity(), 2000U);
        EXPECT_EQ(appData.daqCount, 0);
        EXPECT_FALSE(appData.logEnabled);
    };
    std::future<void> constructions[4];
    for (auto& construction : constructions)
        construction = std::async(std::launch::async, construct);
}

TEST(Facade, EveryDestructionEmptiesTheListsAndNothingElse) {
    auto first = std::make_unique<api_xcp_daq>();
    const api_xcp_daq second;
    xcpDAQList& filled = appData.daqList[2];
    filled.halVarList.emplace_back();
    filled.measurementAttrs.nameList.emplace_back("speed");
    table::add_plain("speed", 2, 0, 0, 4);
    filled.daqName = "slow";
    appData.logEnabled = true;

    first.reset();
    const api_xcp_daq third;
    EXPECT_EQ(filled.halVarList.capacity() + filled.measurementAttrs.nameList.capacity(), 0U);
    EXPECT_TRUE(filled.odtEntryMap.empty());
    EXPECT_EQ(filled.odtEntryByName.at("speed")->name, "speed");
    EXPECT_EQ(filled.odtTableInfo.at(0).entryCount, 1U);
    EXPECT_EQ(filled.daqName, "slow");
    EXPECT_EQ(appData.daqList[1].halVarList.capacity(), 300U) << "an empty list keeps its room";
    EXPECT_TRUE(appData.logEnabled);
}

TEST(Facade, WhatChangesTheRecordWaitsForItsMutex) {
    api_xcp_daq object;
    auto destroyed = std::make_unique<api_xcp_daq>();
    std::unique_lock lock(XCPDAQAppData_mutex);
    const std::future<void> pending[] = {
        std::async(std::launch::async, [&] { destroyed.reset(); }),
        std::async(std::launch::async, [&] { object.setSpecFileName("", ""); }),
        std::async(std::launch::async, [] { api_xcp_daq::addMeasurement("m", 0, 0, 0, 1, 0); }),
        std::async(std::launch::async, api_xcp_daq::stoplog),
    };
    for (const auto& call : pending)
        EXPECT_EQ(call.wait_for(50ms), std::future_status::timeout);
    lock.unlock();
}

TEST(Facade, MeasurementInfoIsCopiedForTheFourListsOnly) {
    api_xcp_daq object;
    appData.daqList[3].daqResource = "STIM";
    appData.daqList[3].triggerName = "event10ms";
    appData.daqList[3].measurementAttrs.nameList = {"a", "b"};
    getMeasurementArgs args;
    for (const int index : {3, 4, -1}) {
        object.getMeasurementInfoFromSpecs(index, &args);
        EXPECT_EQ(args.daqResource + args.triggerName, "STIMevent10ms");
        EXPECT_EQ(args.measurementAttrs.nameList, (std::vector<std::string>{"a", "b"}));
    }
    object.getMeasurementInfoFromSpecs(0, &args);
    EXPECT_EQ(args.daqResource + args.triggerName, "");
    EXPECT_TRUE(args.measurementAttrs.nameList.empty());
}

// A task with both logs open.
class Configuration : public testing::Test {
  protected:
    api_xcp_daq object;
    TemporaryFile log, measurements;
    const xcpDAQList& list = appData.daqList[0];

    Configuration() { open_logs(); }
    void open_logs() {
        appData.logFile = std::ofstream(log.path());
        appData.measurementFile = std::ofstream(measurements.path());
        appData.logEnabled = true;
    }
};

// ---- spec files ----

// What the record holds, as one line; of the lists, those that anything was read for.
std::string record() {
    std::ostringstream text;
    text << appData.registeredName << ' ' << appData.serverName << ':' << appData.serverPort << ' '
         << appData.a2lFilePath << appData.a2lFileName << ' ' << appData.daqCount;
    for (int number = 0; number < 4; ++number) {
        const xcpDAQList& list = appData.daqList[static_cast<std::size_t>(number)];
        const auto& names = list.measurementAttrs.nameList;
        EXPECT_EQ(names.size(), list.halVarList.size());
        if (!list.daqName.empty() || !names.empty())
            text << " | " << number << ' ' << list.daqName << ' ' << list.daqResource << ' '
                 << list.triggerName;
        for (int i = 0; i < api_xcp_daq::getNumOfHVars(number); ++i) {
            const halVarInfo& line = *api_xcp_daq::getHalVarVecPtr(number, i);
            const std::string& name = names[static_cast<std::size_t>(i)];
            EXPECT_EQ(name, std::string(line.varName, strnlen(line.varName, 80)));
            text << ", " << name << ' ' << std::string(line.varTag, strnlen(line.varTag, 16)) << ' '
                 << line.varOption;
        }
    }
    return text.str();
}

bool read(const std::string& text) {
    const TemporaryFile spec(text);
    const int free = dup(STDOUT_FILENO);
    close(free);
    const bool result = api_xcp_daq::readSpecs(spec.path().c_str());
    EXPECT_EQ(dup(STDOUT_FILENO), free) << "the file is still open";
    appData.logFile.flush();
    return result;
}

const std::string named = "@REG_NAME\nxcpdaq\n";
const std::string server = "@XCP_SERVER\n192.0.2.10:0700\n";
const std::string a2l = "@A2L_FILE\nengine.a2l\n@A2L_FILEPATH\n/specs/a2l/\n";
const std::string usual = named + server + a2l;
const std::string word(300, 'w');

const std::string known = "xcpdaq 192.0.2.10:700 /specs/a2l/engine.a2l ";
const std::string nameless = " 192.0.2.10:700 /specs/a2l/engine.a2l 0";
const std::string none = " Found Measurements: 0\n";
const std::string one = " Found Measurements: 1\n";
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
     " Found Measurements: 2\n"},
    {"ARegistrationNameAtTheEndOfTheFile", server + a2l + "@REG_NAME\nlate", nameless, none},
    {"NoRegistrationName", server + a2l + "@REG_NAME\n$x\n", nameless, none},
    {"ABlankRegistrationName", server + a2l + "@REG_NAME\n  \n", nameless,
     "@REG_NAME expected, but found    " + none},
    {"AServerAtTheEndOfTheFile", named + a2l + "@XCP_SERVER\n$host,\t12x",
     "xcpdaq $host:12 /specs/a2l/engine.a2l 0", none},
    {"ABlankServer", named + a2l + "@XCP_SERVER\n\n", "xcpdaq :0 /specs/a2l/engine.a2l 0", none},
    {"NoServer", named + a2l + "@LIST1\nl DAQ t\n$\n", "xcpdaq :0  0",
     "@XCP_SERVER expected, but found xcpdaq ", false},
    {"A2lSectionsThatBeginWithADollar", named + server + "@A2L_FILE\n$\n@A2L_FILEPATH\n$\n",
     "xcpdaq 192.0.2.10:700 $ 0", "@A2L_FILEPATH expected found $ " + none},
    {"NoA2lSections", named + server + "@A2L_FILE\nlast.a2l", "xcpdaq 192.0.2.10:700  0",
     "@A2L_FILE expected found last.a2l @A2L_FILEPATH expected found last.a2l " + none},
    {"ShortHeaders", usual + "@LIST1\nshort DAQ\nm tag -\n$\n@LIST2\nx",
     known + "0 | 0   , m tag 2",
     short_header + "2 after \n" + short_header + "1 after @LIST1\n" + one},
    // A line is split all the same, a last line is not.
    {"HeadersThatBeginWithADollar", usual + "@LIST1\n$ DAQ trigger\nm tag -\n@LIST2\n$ DAQ trigger",
     known + "1 | 0 $ DAQ trigger", short_header + "0 after @LIST1\n" + none},
    {"AnUnknownResource", usual + "@LIST1\nl daq t\n$\n", known + "1 | 0 l DAQ t",
     "Incorrect Resource choice: DAQ or STIM? found daq\nDefaulting to DAQ\n" + none},
    {"AMeasurementAtTheEndOfTheFile", usual + "@LIST1\nl DAQ t\none two\nm tag -",
     known + "1 | 0 l DAQ t, m tag 2", "Expected 3 tokens only received 2\n" + one},
    {"LongWords",
     server + "@REG_NAME\n" + word + "\n@A2L_FILE\n" + word + "\n@LIST4\nl DAQ t\n" + word + " " +
         word + " -\n$\n@A2L_FILEPATH\nlast",
     word.substr(0, 49) + " 192.0.2.10:700 " + word.substr(0, 255) + " 1 | 3 l DAQ t, " +
         word.substr(0, 80) + " " + word.substr(0, 16) + " 2",
     "@A2L_FILEPATH expected found last " + one},
};

class SpecReading : public Configuration, public testing::WithParamInterface<Reading> {};

TEST_P(SpecReading, FillsTheRecordAndTheLog) {
    EXPECT_EQ(read(GetParam().text), GetParam().result);
    EXPECT_EQ(record(), GetParam().record);
    EXPECT_EQ(log.text(), GetParam().log);
    EXPECT_EQ(Registered_name, appData.registeredName);
}

INSTANTIATE_TEST_SUITE_P(Of, SpecReading, testing::ValuesIn(readings),
                         [](const auto& reading) { return std::string(reading.param.name); });

TEST_F(Configuration, ASecondReadingAppendsAndIsSilentWhileLoggingIsOff) {
    const std::string text = usual + "@LIST1\nl daq t\nx\nm tag -\n$\n";
    EXPECT_FALSE(api_xcp_daq::readSpecs("/nonexistent"));
    EXPECT_TRUE(read(text));
    const std::string before = log.text();
    EXPECT_TRUE(before.starts_with("couldn't open spec_file -/nonexistentIncorrect")) << before;
    appData.logEnabled = false;
    EXPECT_TRUE(read("@REG_NAME\n\n@A2L_FILE\n\n@A2L_FILEPATH\n\n" + text));
    api_xcp_daq::dumpInfo();
    EXPECT_EQ(record(), known + "2 | 0 l DAQ t, m tag 2, m tag 2");
    EXPECT_EQ(log.text(), before);
}

TEST_F(Configuration, SetSpecFileNameStoresBothTextsEvenWhenItFails) {
    EXPECT_TRUE(object.setSpecFileName("maps", "/proc/self/"));
    EXPECT_TRUE(appData.specFile.is_open());
    EXPECT_FALSE(object.setSpecFileName("stat", "/proc/self"));
    EXPECT_FALSE(appData.specFile.is_open());
    EXPECT_EQ(appData.specFilePath + appData.specFileName, "/proc/selfstat");
}

// ---- measurement table ----

TEST_F(Configuration, EachEntryStartsBehindItsPredecessor) {
    struct Case {
        int odt, index, size, firstByte, lastByte;
        std::uint64_t count = 1;
    };
    const Case cases[] = {
        {3, 5, 2, 2, 3}, // the first of its list, whatever its index
        {7, 0, 4, 2, 5, 1},
        {7, 1, 2, 6, 7, 2},
        {7, 2, 1, 8, 8, 3},
        {7, 0, 1, 2, 2, 4}, // replaces the former
        {8, 0, 8, 2, 9},
        {8, 12, 2, 0, 1, 2}, // has no predecessor
        {9, 0, INT_MAX, 2, INT_MAX},
        {9, 1, 4, INT_MAX, INT_MAX, 2},
        {10, 0, INT_MIN, 2, INT_MIN + 1},
        {10, INT_MIN, 4, 0, 3, 2},
    };
    for (const Case& c : cases) {
        api_xcp_daq::addMeasurement("m", 0, c.odt, c.index, c.size, 0);
        const odt_table_entry& entry = *list.odtEntryByName.at("m");
        EXPECT_EQ(list.odtEntryMap.at({c.odt, c.index}), &entry);
        EXPECT_EQ(std::pair(entry.firstByte, entry.lastByte), std::pair(c.firstByte, c.lastByte));
        EXPECT_EQ(list.odtTableInfo.at(c.odt).odtLength, std::int64_t{c.lastByte} + 1);
        EXPECT_EQ(list.odtTableInfo.at(c.odt).entryCount, c.count);
    }
}

TEST_F(Configuration, BindsAndMarksTheTasksOwnVariables) {
    appData.registeredName = "bench";
    const std::tuple<const char*, std::uint16_t, const char*, std::size_t, char> cases[] = {
        {"real", host_double::real, "bench", 54, 1},
        {"integer", host_double::integer, "bench", 2, 1},
        {"third", host_double::other_real, "bench", 2, 1},
        {"longer", host_double::integer, "bench2", 2, 0},
    };
    for (const auto& [variable, kind, owner, marker, marked] : cases) {
        const auto& defined = host().define(variable, kind, owner);
        api_xcp_daq::addMeasurement(variable, 0, 0, 0, 1, 0);
        EXPECT_EQ(list.odtEntryByName.at(variable)->hostVar->kind, kind);
        EXPECT_EQ(defined.bytes[marker], marked) << variable;
    }
    appData.logEnabled = false;
    for (const char* variable : {"unknown", "real"})
        api_xcp_daq::addMeasurement(variable, 0, 0, 9, 1, 0);
    EXPECT_EQ(list.odtEntryByName.at("unknown")->hostVar, nullptr);
    EXPECT_EQ(log.text(),
              "Halmor Variable Name: real found \nHalmor Variable Name: integer found \n"
              "Halmor Variable Name: third found \nHalmor Variable Name: longer found \n");
}

TEST_F(Configuration, FindVarTellsWhyThereIsNoDescriptor) {
    void* variable = nullptr;
    EXPECT_EQ(HMAPI_DAQ_find_var(nullptr, &variable), -1);
    EXPECT_EQ(HMAPI_DAQ_find_var("x", &variable), -300);
    host().define("x", host_double::real);
    for (bool* missing : {&host().noAddress, &host().noDescriptor}) {
        *missing = true;
        EXPECT_EQ(HMAPI_DAQ_find_var("x", &variable), 46);
        *missing = false;
    }
    EXPECT_EQ(variable, nullptr);
    EXPECT_EQ(HMAPI_DAQ_find_var("x", &variable), 0);
    delete static_cast<DaqVariable*>(variable);
}

TEST_F(Configuration, ALaterConversionOfTheListsEntryReplacesTheFormer) {
    api_xcp_daq::addMeasurement("N", 0, 1, 0, 2, 0x10);
    api_xcp_daq::addComputeMethod("N", 0, 9, 9, 9, 9, 9, 9, 9);
    api_xcp_daq::addComputeMethod("N", 0, 1, 0.5, 10, 2, 3, -100, 100);
    api_xcp_daq::addComputeMethod("N", 3, -1, -2, 1e9, 2, 5, 0.00005, 1e-9);
    api_xcp_daq::addMeasurement("N2", 3, 191, 1, 8, 255);
    const odt_table_entry& e = *list.odtEntryByName.at("N");
    EXPECT_EQ(std::tuple(e.computeInt1, e.factor, e.offset, e.computeInt2, e.byteOrder,
                         e.lowerLimit, e.upperLimit),
              std::tuple(1, 0.5, 10.0, 2, 3, -100.0, 100.0));
    EXPECT_EQ(measurements.text(), "N,0,1,0,2,16\n"
                                   "N,0,9,9.0000,9.0000,9,9,9.0000,9.0000\n"
                                   "N,0,1,0.5000,10.0000,2,3,-100.0000,100.0000\n"
                                   "N,3,-1,-2.0000,1000000000.0000,2,5,0.0001,0.0000\n"
                                   "N2,3,191,1,8,255\n");
}

TEST_F(Configuration, ListsOutsideZeroToThreeAreRefusedWithoutATrace) {
    appData.daqList[0].halVarList.resize(1);
    for (const int number : {-1, 4, INT_MAX, INT_MIN}) {
        api_xcp_daq::addMeasurement("m", number, 0, 0, 2, 0);
        api_xcp_daq::addComputeMethod("m", number, 1, 2, 3, 4, 5, 6, 7);
        EXPECT_EQ(api_xcp_daq::getNumOfHVars(number), 0);
        EXPECT_THROW(api_xcp_daq::getHalVarVecPtr(number, 0), std::out_of_range);
        EXPECT_THROW(api_xcp_daq::getHalVarVecPtr(2, number), std::out_of_range);
    }
    EXPECT_EQ(measurements.text(), "");
}

// ---- logs ----

class GroupingComma : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    std::string do_grouping() const override { return "\1"; }
};

TEST_F(Configuration, WritesTheSameInWhateverLocaleTheTaskHasSet) {
    std::string spec = "@XCP_SERVER\nhost:5555\n@LIST2\nfast DAQ event\n";
    for (int i = 0; i < 10; ++i)
        spec += "m tag -\n";
    const auto expect_plain_text = [&] {
        const std::locale locale = appData.logFile.getloc();
        read(spec);
        object.setSpecFileName("engine.spec", "/nonexistent/");
        appData.daqCount = 10;
        api_xcp_daq::addMeasurement("m", 0, 10, 0, 10, 16);
        api_xcp_daq::addMeasurement("m", 0, 10, 20, 10, 16);
        api_xcp_daq::addComputeMethod("m", 0, 10, 10, 10, 10, 10, 10, 10);
        api_xcp_daq::dumpInfo();
        const std::string empty = " DAQ Name    :  \n DAQ Resource:  \n DAQ TriggerName :  \n"
                                  " MeasureMent List information: \n";
        EXPECT_EQ(log.text(), "@A2L_FILE expected found host:5555 @A2L_FILEPATH expected found "
                              "host:5555  Found Measurements: 10\n"
                              "failed to find previous odtEntry found : 20  instead of 19"
                              "engine.spec\n/nonexistent/\nDAQ Count 10\n"
                              "Server IP/Host Name: host Port: 5555\n"
                              "FilePath: /nonexistent/\nspecFileName engine.spec\n" +
                                  empty +
                                  " DAQ Name    : fast \n DAQ Resource: DAQ \n"
                                  " DAQ TriggerName : event \n MeasureMent List information: \n" +
                                  empty + empty);
        EXPECT_EQ(measurements.text(), "m,0,10,0,10,16\nm,0,10,20,10,16\n"
                                       "m,0,10,10.0000,10.0000,10,10,10.0000,10.0000\n");
        EXPECT_EQ(appData.logFile.getloc(), locale);
        EXPECT_EQ(appData.measurementFile.getloc(), locale);
    };
    expect_plain_text();

    const std::locale locale(std::locale::classic(), new GroupingComma);
    open_logs();
    appData.logFile.imbue(locale);
    appData.measurementFile.imbue(locale);
    expect_plain_text();

    std::locale::global(locale);
    open_logs(); // streams in place of the former
    expect_plain_text();
}

TEST_F(Configuration, StopLogClosesTheLogsWithTheLocalTime) {
    const auto date_and_time = [](std::time_t time) {
        char text[32];
        std::strftime(text, sizeof text, "%d-%m-%Y %H-%M-%S", std::gmtime(&time));
        return std::string(text);
    };
    // 23 o'clock of yesterday, or of today if yesterday's number was its month's.
    constexpr std::time_t hour = 60 * 60;
    std::time_t time = std::time(nullptr), shift = -(time / hour % 24 + 1) * hour;
    if (const auto date = date_and_time(time + shift); date.substr(0, 2) == date.substr(3, 2))
        shift += 24 * hour;
    setenv("TZ", ("Test" + std::to_string(-shift / hour)).c_str(), 1);
    tzset();
    EXPECT_EQ(api_xcp_daq::startlog(), 0);
    appData.logFile << "x";
    api_xcp_daq::stoplog();
    const auto closing = [&] { return "x\nStopped Logging" + date_and_time(time + shift) + "\n"; };
    while (log.text() != closing() && time < std::time(nullptr))
        ++time;
    EXPECT_EQ(log.text(), closing());
    EXPECT_EQ(measurements.text(), "---------\n");
    EXPECT_FALSE(appData.logEnabled || appData.logFile.is_open() ||
                 appData.measurementFile.is_open());
}

TEST_F(Configuration, StopLogLeavesLogsThatAreOffOrHaveFailed) {
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

} // namespace
