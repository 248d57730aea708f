// The whole task, run as a user runs it.

#include "io/udp_socket.h"
#include "table.h"
#include "task_program.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <regex>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using table::Bytes;

namespace {

const std::string data = XCP_DAQ_TEST_DATA;
const std::string spec = XCP_DAQ_EXAMPLES "/engine.spec";
const std::string engine_table = XCP_DAQ_EXAMPLES "/engine.table";
const std::string variables = XCP_DAQ_EXAMPLES "/engine.variables";

// A spec file and its table, then what a case adds.
Arguments with(const std::string& specFile, const std::string& table, const Arguments& more) {
    Arguments arguments = {specFile, "--table", table};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}
Arguments engine(const Arguments& more) {
    return with(spec, engine_table, more);
}
// The slave is set up by the A2L file, and simulated.
Arguments simulated(const Arguments& more, const std::string& specFile = spec) {
    Arguments arguments = {specFile, "--simulate"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}
Arguments recording(const Arguments& more) {
    return with(data + "/slave.spec", data + "/slave.table", more);
}

std::string text_of(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool has(const std::string& text, const std::string& pattern) {
    return std::regex_search(text, std::regex(pattern));
}

// The closing table: value and updates by variable, sample times apart.
using Row = std::pair<std::string, std::string>;
using Rows = std::map<std::string, Row>;
Rows table_of(const std::string& output) {
    Rows rows;
    const std::regex row("\n(\\S+) +(\\S+) +(never|\\d+\\.\\d{9}) +(\\d+)(?=\n)");
    for (std::sregex_iterator match(output.begin(), output.end(), row), end; match != end; ++match)
        rows[(*match)[1]] = {(*match)[2], (*match)[4]};
    return rows;
}

std::string line_after(const std::string& text, const std::string& start) {
    const std::size_t at = text.find(start) + start.size();
    return text.substr(at, text.find('\n', at) - at);
}

TEST(Task, ReportsWhatARecordingHolds) {
    const auto end = run_task(recording({"--pcap", data + "/slave_excerpt.pcap", "--strict"}));
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.errors, "");
    auto rows = table_of(end.output);
    EXPECT_EQ(rows["f_n"], Row("4513", "1264"));
    EXPECT_EQ(rows["s_n"], Row("450", "126"));
    EXPECT_EQ(rows["g_u16"].first, "13556");
    EXPECT_TRUE(has(end.output, "f_n +4513 +\\d{10}\\.\\d{9} "));
    EXPECT_TRUE(has(end.output,
                    "\nfillers: 7 \\(entries of the table that no variable takes\\)\n"
                    "datagrams     27 \\(128928 bytes\\)\nmessages      5310\nDAQ packets   5308\n"
                    "values        20220\nrate          \\d+ values/s over [1-9][0-9.]* s\n"
                    "CTR gaps      0 \\(0 messages missing, 0 late, 0 repeated\\)\n"
                    "kernel drops  0\npriority      22 .*\nheld          .*\n"
                    "trust         yes: .*\n$"))
        << end.output;
}

TEST(Task, TellsWhatItDoesWhileItRuns) {
    const auto end =
        run_task(simulated({"--variables", variables, "--seconds", "1.2", "--strict"}));
    EXPECT_EQ(end.status, 0) << end.errors;
    EXPECT_TRUE(has(end.output, "  1\\.\\d s  \\d+ datagrams  \\d+ DAQ packets  \\d+ values  "
                                "\\d+ values/s  0 CTR gaps  0 kernel drops  \\d+ waiting\n"))
        << end.output;
    for (const auto& [name, row] : table_of(end.output))
        EXPECT_NE(row.second, "0") << name;
}

TEST(Task, AValueThatDoesNotArriveIsReportedByTheStatus) {
    const TemporaryFile kinds("engSpeed real\n");
    const auto end = run_task(simulated({"--variables", kinds.path(), "--seconds", "0.2"}));
    EXPECT_EQ(end.status, 2);
    EXPECT_TRUE(has(end.errors, "xcp_daq_task: crankCount: 0 of [1-9]\\d* values arrived\n"))
        << end.errors << "no variable takes it";
    EXPECT_FALSE(has(end.errors, "engSpeed")) << end.errors;
}

// ---- data types ----

// Every type in both byte orders, by each kind of conversion and with masks: a line of the spec
// file and a MEASUREMENT for each, in the example's slave.
struct TypeFiles {
    TypeFiles() {
        const std::pair<const char*, int> types[] = {
            {"UBYTE", 1},        {"SBYTE", 1},        {"UWORD", 2},       {"SWORD", 2},
            {"ULONG", 4},        {"SLONG", 4},        {"A_UINT64", 8},    {"A_INT64", 8},
            {"FLOAT16_IEEE", 2}, {"FLOAT32_IEEE", 4}, {"FLOAT64_IEEE", 8}};
        const std::pair<const char*, const char*> ways[] = {
            {"NO_COMPU_METHOD", ""},
            {"CM_linear", ""},
            {"CM_rational", ""},
            {"NO_COMPU_METHOD", "BIT_MASK 0x3C"},
            {"CM_linear", "BIT_MASK 0xFFFFFFFFFFFFFFF8"}};
        int address = 0x1000;
        for (const auto& [type, size] : types)
            for (const char* order : {"MSB_FIRST", "MSB_LAST"})
                for (const auto& [method, more] : ways) {
                    if (*type == 'F' && *more != '\0')
                        continue;
                    std::string name = "v";
                    name += std::to_string(names.size());
                    names.push_back(name);
                    measurements += "/begin MEASUREMENT " + name + " \"\" " + type + " " + method +
                                    " 0 0 0 0 ECU_ADDRESS " + std::to_string(address) +
                                    " BYTE_ORDER " + order + " " + more + " /end MEASUREMENT\n";
                    address += size;
                }
        std::ifstream example(XCP_DAQ_EXAMPLES "/engine.a2l");
        const std::string slave{std::istreambuf_iterator<char>(example), {}};
        std::ofstream(a2l.path())
            << slave.substr(0, slave.find("/begin MEASUREMENT")) << measurements
            << "/begin COMPU_METHOD CM_linear \"\" LINEAR \"%5.1\" \"\" COEFFS_LINEAR 0.5 -10 "
               "/end COMPU_METHOD\n/begin COMPU_METHOD CM_rational \"\" RAT_FUNC \"%5.1\" \"\" "
               "COEFFS 0 -8 4 0 0 2 /end COMPU_METHOD\n/end MODULE /end PROJECT\n";
        std::ofstream list(spec.path());
        list << "@A2L_FILE\n"
             << a2l.path().substr(a2l.path().rfind('/') + 1)
             << "\n$\n@A2L_FILEPATH\n.\n$\n@XCP_SERVER\nh 1\n$\n@LIST1\nall DAQ event5ms\n";
        std::ofstream kinds(integers.path());
        for (const std::string& name : names) {
            list << name << " - -\n";
            kinds << name << " integer\n";
        }
        list << "$\n";
    }
    std::vector<std::string> names;
    std::string measurements;
    const TemporaryFile a2l;
    const TemporaryFile spec;
    const TemporaryFile integers;
};

TEST(TaskTypes, EveryTypeArrivesFromASlaveAndFromADump) {
    const TypeFiles files;
    for (const bool integer : {false, true}) {
        const TemporaryFile table;
        const TemporaryFile log;
        Arguments more = {"--seconds",         "0.7",     "--save-table", table.path(), "--dump",
                          "--measurement-log", log.path()};
        if (integer)
            more.insert(more.end(), {"--variables", files.integers.path()});
        const auto end = run_task(simulated(more, files.spec.path()));
        EXPECT_EQ(end.status, 0) << "as the slave counts them";
        EXPECT_EQ(end.errors, "");
        auto rows = table_of(end.output);
        EXPECT_EQ(rows.size(), files.names.size());
        for (const auto& [name, row] : rows)
            EXPECT_EQ(row.second, rows["v0"].second) << name << ": once per sample";
        EXPECT_EQ(
            has(end.output, "\n  v\\d+: [1-9]\\d* values beyond 32 bits were held at the ends\n"),
            integer)
            << end.output;
        EXPECT_EQ(has(end.output, "trust         yes"), !integer);
        EXPECT_TRUE(has(table.text(), "\nv33,0,0,1,0,0,0,-32768,32767,SWORD 0x3c\n"))
            << table.text();
        EXPECT_TRUE(has(log.text(), "\nv75#1,\\d+,\\d+,\\d+,4,16\n")) << log.text();

        const std::string dump = line_after(end.output, "dump in ");
        Arguments again = with(files.spec.path(), table.path(), {"--replay", dump});
        if (integer)
            again.insert(again.end(), {"--variables", files.integers.path()});
        EXPECT_EQ(table_of(run_task(again).output), rows) << "the table has all of it";
        unlink(dump.c_str());
    }
}

// ---- trust ----

TEST(TaskTrust, LosesItToEveryFaultOfTheSlave) {
    struct Case {
        std::string faults;
        std::string hold;
        std::string counts; // regular expressions
        std::string doubts;
    };
    const std::string raised = "  \\d+ samples came later than they could be held: .*\n";
    const std::string lost = "  packets were lost .see the counts.\n";
    const std::string late = "  \\d+ messages came out of order\n";
    const std::string twice = "  \\d+ messages came twice\n";
    const std::string jumps = "  the sample time jumped \\d+ times\n(    at engSpeed: .*\n){3}";
    const std::vector<Case> cases = {
        {"lost", "10", "[1-9]\\d* \\([1-9]\\d* messages missing, 0 late, 0 repeated", lost},
        {"repeated", "10", "0 \\(0 messages missing, 0 late, [1-9]\\d* repeated", twice},
        {"late", "0", "[1-9]\\d* \\(0 messages missing, [1-9]\\d* late, 0 repeated", late + raised},
        {"jump", "10", "0 \\(0 messages missing, 0 late, 0 repeated", jumps},
        {"lost,repeated,late,jump", "0", "[1-9].*", lost + late + twice + raised + jumps},
    };
    for (const Case& c : cases) {
        const auto end = run_task(
            simulated({"--faults", c.faults, "--hold", c.hold, "--seconds", "0.6", "--strict"}));
        EXPECT_EQ(end.status, 2) << c.faults;
        EXPECT_EQ(end.errors, "") << "what went out has arrived";
        EXPECT_TRUE(has(end.output, "CTR gaps      " + c.counts) &&
                    has(end.output, "trust         no:\n" + c.doubts + "$"))
            << end.output;
    }
    const auto held = run_task(simulated({"--faults", "late", "--seconds", "0.6", "--strict"}));
    EXPECT_EQ(held.status, 0) << held.output;
    EXPECT_TRUE(has(held.output, "\nput right     [1-9]\\d* datagrams that were overtaken\n"));
}

// Packets that do not fit the table, from a file of frames.
TEST(TaskTrust, LosesItToPacketsThatDoNotFitTheTable) {
    const TemporaryFile list("@XCP_SERVER\nh 1\n$\n@LIST1\nl DAQ t\na - -\n$\n");
    const TemporaryFile layout("a,0,0,0,4,16\nfiller,0,0,1,1,16\na,0,0,1,0,0,1,0,1e9\n");
    const std::string stamped = "11 \n0,0,1,0,0,0,7,0,0,0,0\n";
    const std::string padded = "12 \n0,0,1,0,0,0,7,0,0,0,0,0\n";
    const std::string cut = "6 \n0,0,7,0,0,0\n";
    const std::string unstamped = "7 \n0,0,7,0,0,0,0\n";
    const std::string otherHeader = "8 \n0,aa,0,0,1,2,3,4\n";
    struct Case {
        std::string frames;
        std::string doubts;
        int status = 2;
    };
    const std::vector<Case> cases = {
        {stamped + stamped, "yes: .*", 0},
        {"", "no:\n  no DAQ packet came\n  never updated: a"},
        {padded + padded,
         "no:\n  DAQ list 0, ODT 0: 2 packets of another length than the table's, the first of 12 "
         "bytes instead of 7 or, with a timestamp, 11\n  DAQ list 0: no timestamp came\n"
         "  2 values without a sample time"},
        {stamped + stamped + cut + padded,
         "no:\n  DAQ list 0, ODT 0: 2 packets of another length .* the first of 6 bytes .*"},
        {unstamped + unstamped,
         "no:\n  DAQ list 0: no timestamp came\n  2 values without a sample time"},
        {stamped + stamped + "2 \nfd,6\n2 \nfd,7\n",
         "no:\n  the slave reported an overload 1 times: it lost samples\n  the slave said that it "
         "ended the session"},
        {stamped + stamped + otherHeader + otherHeader + "2 \n5,0\n1 \n0\n",
         "no:\n  4 packets of a DAQ list or ODT that the table does not have, not decoded\n"
         "    2 of DAQ list 170, ODT 0\n    1 of DAQ list 0, ODT 5\n    1 of a single byte"},
    };
    for (const Case& c : cases) {
        const TemporaryFile frames(c.frames);
        const auto end =
            run_task(with(list.path(), layout.path(), {"--replay", frames.path(), "--strict"}));
        EXPECT_EQ(end.status, c.status) << end.errors;
        EXPECT_TRUE(has(end.output, "\ntrust         " + c.doubts + "\n$")) << end.output;
        EXPECT_EQ(end.output.find("daqNum"), std::string::npos) << "the library did not get it";
    }
    const TemporaryFile frames(padded);
    EXPECT_EQ(run_task(with(list.path(), layout.path(), {"--replay", frames.path()})).status, 0)
        << "only --strict minds";
}

TEST(Task, ReceivesFromTheNetworkUntilItIsSignalled) {
    const io::UdpSocket slave(io::parse_endpoint("127.0.0.2:0"));
    const io::UdpSocket stranger(io::parse_endpoint("127.0.0.2:0"));
    const std::string port = std::to_string(slave.local().port);
    const TemporaryFile list("@XCP_SERVER\n127.0.0.2 " + port +
                             "\n$\n@LIST1\nfast DAQ event\nspeed - -\n$\n");
    const TemporaryFile layout("speed,0,0,0,2,0\nspeed,0,0,1,0,0,1,0,100000\n");
    TaskProgram task(with(list.path(), layout.path(), {"--strict"}));
    ASSERT_TRUE(task.await_output(" on 127.0.0.1:" + port + "\n")) << "the server's port";
    const io::UdpEndpoint master = io::parse_endpoint("127.0.0.1:" + port);
    stranger.send(master, table::message({0, 0, 9, 9}));
    for (const int n : {1, 2, 4})
        slave.send(master, table::message({0, 0, static_cast<std::uint8_t>(n), 1},
                                          static_cast<std::uint16_t>(n)));
    ASSERT_TRUE(task.await_output(" waiting  misfit  1 datagrams from")) << "no sample time";
    task.signal(SIGINT);
    const auto end = task.wait();
    EXPECT_EQ(end.status, 2);
    EXPECT_TRUE(has(end.output, "trust         no:\n  packets were lost"));
    EXPECT_EQ(table_of(end.output)["speed"], Row("260", "3")) << "what had arrived counts";
    EXPECT_TRUE(has(end.output, "CTR gaps      1 \\(1 messages missing, 0 late, 0 repeated\\)\n"
                                "kernel drops  0\n(.*\n)?not taken     1 datagrams from"));
}

// ---- bad input ----

TEST(Task, RefusesBadInputWithOneLine) {
    const TemporaryFile badSpec("@XCP_SERVER\n127.0.0.1:70000\n$\n");
    const TemporaryFile emptySpec("@XCP_SERVER\nh 1\n$\n@A2L_FILE\n$\n");
    const TemporaryFile badTable("engSpeed,0,0,0,2,16\nengSpeed,0\n");
    const TemporaryFile noCapture("not a capture, whatever its name says");
    const TemporaryFile badFrames("2 \n0,3\n0 \n\n2 \n0,3\n");
    const io::UdpSocket taken(io::parse_endpoint("127.0.0.1:0"));
    const std::string inUse = to_text(taken.local());
    const std::string atMost = "Requires at most 1 options be given from .*";
    struct Case {
        Arguments arguments;
        int status;
        std::string errors; // a regular expression
    };
    const std::vector<Case> cases = {
        {{}, 1, ".*SPEC is required.*"},
        {engine({"--seconds", "-1"}), 1, ".*--seconds.*"},
        {engine({"--simulate"}), 1, "--table excludes --simulate.*"},
        {engine({"--protocol-log", "x"}), 1, "--table excludes --protocol-log.*"},
        {{spec, "--listen", "127.0.0.1:0"}, 1, "--listen requires --table.*"},
        {engine({"--replay", "--listen", "127.0.0.1:0"}), 1, atMost},
        {simulated({"--pace", "max"}), 1, ".*--pace requires --pcap.*"},
        {engine({"--faults", "lost"}), 1, "--faults requires --simulate.*"},
        {simulated({"--faults", "lost,cut"}), 1, "--faults: cut not in .*"},
        {engine({"--listen", "nowhere"}), 1, "--listen: expected ADDRESS:PORT, found nowhere"},
        {engine({"--listen", "192.0.2.1:5555"}), 4, "cannot listen on 192.0.2.1:5555: .*"},
        {engine({"--listen", inUse}), 4, "cannot listen on " + inUse + ": Address already in use"},
        {with("/nonexistent", engine_table, {}), 3, "/nonexistent: No such file or directory"},
        {with(badSpec.path(), engine_table, {}), 3,
         badSpec.path() + ":2: expected ADDRESS:PORT, with a port from 1 to 65535"},
        {with(emptySpec.path(), engine_table, {}), 3, emptySpec.path() + ":4: no A2L file"},
        {with(spec, badTable.path(), {}), 3,
         badTable.path() +
             ":2: expected 6 fields .a measurement. or 9 or 10 .a conversion., found 2"},
        {engine({"--pcap", noCapture.path()}), 3, noCapture.path() + ": .*"},
        {engine({"--replay", "/nonexistent"}), 3, "/nonexistent: No such file or directory"},
        {engine({"--replay", badFrames.path()}), 3,
         badFrames.path() + ": record 2: no values after the length line"},
        // What cannot be written.
        {simulated({"--log", "/nonexistent/x"}), 3, "/nonexistent/x: No such .*"},
        {simulated({"--measurement-log", "/"}), 3, "/: Is a directory"},
        {simulated({"--record", "/nonexistent/x"}), 3, "/nonexistent/x: No such .*"},
        {simulated({"--seconds", "0.2", "--record", "/dev/full"}), 3,
         "/dev/full: \\d+ lines were not written: No space left on device"},
    };
    for (const Case& c : cases) {
        const auto end = run_task(c.arguments);
        EXPECT_EQ(end.status, c.status) << end.errors;
        EXPECT_TRUE(std::regex_match(end.errors, std::regex("xcp_daq_task: " + c.errors + "\n")))
            << end.errors;
        const bool ran = has(c.errors, "record 2|No space");
        EXPECT_EQ(has(end.output, "\ndatagrams"), ran) << c.errors << ": nothing was started";
    }
    EXPECT_TRUE(has(run_task(engine({"--replay", badFrames.path()})).output, "DAQ packets   1\n"))
        << "what came before the fault counts";
}

// ---- setting a slave up ----

// A simulated slave in a process of its own, and a spec file for it.
class SlaveProgram {
  public:
    explicit SlaveProgram(const std::string& lists = "fast DAQ event1ms\nengSpeed - -\nknock - -\n")
        : program({XCP_DAQ_EXAMPLES "/engine.a2l", "--listen", "127.0.0.1:0"},
                  XCP_SIMULATED_SLAVE) {
        EXPECT_TRUE(program.await_output(" signals"));
        address = line_after(program.text(), "listening on ");
        address = address.substr(0, address.rfind(": "));
        address = address.substr(0, address.find(": "));
        std::ofstream(spec_.path()) << "@XCP_SERVER\n"
                                    << address << "\n$\n@A2L_FILE\nengine.a2l\n$\n"
                                    << "@A2L_FILEPATH\n" XCP_DAQ_EXAMPLES "\n$\n@LIST1\n"
                                    << lists << "$\n";
    }
    Arguments task(const Arguments& more) const {
        Arguments arguments = {spec_.path()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
    TaskProgram program;
    std::string address;

  private:
    const TemporaryFile spec_;
};

TEST(TaskSession, SetsASlaveUpAndLeavesItStopped) {
    SlaveProgram slave;
    const TemporaryFile log;
    const TemporaryFile table;
    TaskProgram task(
        slave.task({"--strict", "--protocol-log", log.path(), "--save-table", table.path()}));
    ASSERT_TRUE(task.await_output(" waiting\n"));
    EXPECT_TRUE(
        has(task.text(), "connecting to the slave " + slave.address +
                             " from .*\nslave .*\n"
                             "(.*\n)*DAQ list 0  fast, event channel 0 \\(event1ms\\): 2 values, "
                             "1 ODTs, 9 bytes a sample, every 1 ms, 9000 bytes a second\n"))
        << task.text();
    task.signal(SIGINT);
    const auto end = task.wait();
    EXPECT_EQ(end.status, 0) << end.output;
    EXPECT_EQ(end.errors, "");
    EXPECT_TRUE(has(log.text(), "\n\\d+\\.\\d{6} > e2 00 00 00 00 00  SET_DAQ_PTR list 0, ODT 0, "
                                "entry 0\n\\d+\\.\\d{6} < ff  ok\n"));
    EXPECT_TRUE(has(log.text(),
                    " > dd 00  START_STOP_SYNCH mode 0\n.* < ff  ok\n.* > d6  FREE_DAQ\n"
                    ".* < ff  ok\n.* > fe  DISCONNECT\n.* < ff  ok\n$"))
        << log.text();
    EXPECT_TRUE(has(table.text(), "^engSpeed,0,0,0,2,16\nengSpeed,0,0,0.125,0,0,0,0,8191.875\n"));

    slave.program.signal(SIGTERM);
    const auto sent = slave.program.wait();
    auto rows = table_of(end.output);
    EXPECT_EQ(rows["knock"].second, rows["engSpeed"].second);
    const int values = 2 * std::stoi(rows["knock"].second);
    EXPECT_TRUE(has(sent.output, "\nsent " + std::to_string(values) +
                                     " values of 2 signals, ignored 0 messages\n"))
        << sent.output;
}

// The slave takes its form from the same file, and judges by addresses.
TEST(TaskSession, ReceivesEveryForm) {
    const std::string engine_a2l = text_of(XCP_DAQ_EXAMPLES "/engine.a2l");
    const std::pair<const char*, const char*> forms[] = {
        {"RELATIVE_BYTE", "ABSOLUTE"},
        {"RELATIVE_BYTE", "RELATIVE_WORD"},
        {"RELATIVE_BYTE", "RELATIVE_WORD_ALIGNED"},
        {"BYTE_ORDER_MSB_LAST", "BYTE_ORDER_MSB_FIRST"},
        {"UNIT_1NS", "UNIT_1US"},
        {"SIZE_DWORD\n          UNIT_1NS", "SIZE_WORD UNIT_10US"},
        {"1                             /* ticks of the unit */\n          SIZE_DWORD\n"
         "          UNIT_1NS",
         "3 SIZE_DWORD UNIT_100PS"},
        {"SIZE_DWORD", "NO_TIME_STAMP"},
        {"0                               /* no predefined", "7 /* "},
        {"0xF8 ", "1 "},
        {"ADDRESS \"", "PACKET_ALIGNMENT_32 ADDRESS \""},
    };
    for (const auto& [from, to] : forms) {
        std::string text = engine_a2l;
        ASSERT_NE(text.find(from), std::string::npos) << from;
        text.replace(text.find(from), std::string(from).size(), to);
        const TemporaryFile a2l(text);
        std::string lists = text_of(spec);
        lists.replace(lists.find("engine.a2l"), 10, a2l.path().substr(a2l.path().rfind('/') + 1));
        lists.replace(lists.find("\n.\n"), 3, "\n/tmp\n");
        const TemporaryFile own(lists);
        const auto end = run_task(simulated({"--seconds", "0.3", "--strict"}, own.path()));
        EXPECT_EQ(end.status, 0) << to << end.errors << end.output;
    }
}

TEST(TaskSession, RefusesWithOneLineAndLeavesTheSlaveDisconnected) {
    struct Case {
        std::string lists;
        int status;
        std::string errors; // a regular expression, behind the file's name
    };
    const std::vector<Case> cases = {
        {"l DAQ event2ms\nknock - -\n", 3,
         ":11: no event channel event2ms in the A2L file; there are event1ms, event5ms, event20ms"},
        {"l DAQ event1ms\nknok - -\n", 3,
         ":12: no measurement knok in the A2L file; near: knock.*"},
        {"l DAQ event1ms\nknock - x\ngear - x\n", 3, ":13: x is in the list twice"},
        {"l STIM event1ms\nknock - -\n", 3, ":11: l: only lists of resource DAQ can be set up"},
    };
    for (const Case& c : cases) {
        const SlaveProgram slave(c.lists);
        const auto arguments = slave.task({"--quiet", "--seconds", "0.1"});
        const auto end = run_task(arguments);
        EXPECT_EQ(end.status, c.status);
        EXPECT_TRUE(std::regex_match(end.errors,
                                     std::regex("xcp_daq_task: " + arguments[0] + c.errors + "\n")))
            << end.errors;
    }
}

TEST(TaskSession, TellsWhenNobodyAnswers) {
    SlaveProgram slave;
    TaskProgram task(slave.task({}));
    ASSERT_TRUE(task.await_output(" waiting\n"));
    slave.program.signal(SIGKILL);
    slave.program.wait();
    task.signal(SIGINT);
    const auto left = task.wait();
    EXPECT_EQ(left.status, 4);
    EXPECT_EQ(left.errors, "xcp_daq_task: slave " + slave.address +
                               ": not ended in order: the slave has fallen silent: no answer to "
                               "START_STOP_SYNCH, nor to 3 SYNCH of 1000 ms each\n");
    const auto none = run_task(slave.task({}));
    EXPECT_EQ(none.status, 4);
    EXPECT_EQ(none.errors, "xcp_daq_task: slave " + slave.address +
                               ": nobody answers to CONNECT, 3 times for 1000 ms\n");
}

// The same slave again, or another one, at its old address.
TEST(TaskSession, GoesOnWhenTheSlaveIsBack) {
    SlaveProgram slave;
    const TemporaryFile record;
    TaskProgram task(slave.task({"--strict", "--record", record.path()}));
    ASSERT_TRUE(task.await_output(" waiting\n"));
    slave.program.signal(SIGKILL);
    slave.program.wait();
    ASSERT_TRUE(task.await_output("silent for "));
    {
        TaskProgram again({XCP_DAQ_EXAMPLES "/engine.a2l", "--listen", slave.address},
                          XCP_SIMULATED_SLAVE);
        ASSERT_TRUE(task.await_output("  1 gaps\n"));
        again.signal(SIGKILL);
        again.wait();
    }
    const TemporaryFile other(std::regex_replace(text_of(XCP_DAQ_EXAMPLES "/engine.a2l"),
                                                 std::regex("UNIT_1NS"), "UNIT_1US"));
    TaskProgram another({other.path(), "--listen", slave.address}, XCP_SIMULATED_SLAVE);
    const auto end = task.wait();
    EXPECT_EQ(end.status, 4);
    EXPECT_EQ(end.errors, "xcp_daq_task: slave " + slave.address +
                              ": it came back as another one: its timestamp is 4 bytes in units "
                              "of 1 us and was 4 bytes in units of 1 ns\n");
    EXPECT_TRUE(has(end.output, "CTR gaps      0 \\(0 messages missing, 0 late, 0 repeated.*"
                                "(\n.*)*\ngap           from .*: the slave was away\n"
                                "trust         no:\n  nothing came in the last .* s\n"
                                "  the session did not end in order: the slave was away\n"
                                "  the slave was away 1 times\n$"))
        << end.output;
    std::istringstream lines(record.text());
    std::string line;
    std::getline(lines, line);
    double last = 0;
    double longest = 0;
    while (std::getline(lines, line)) {
        const double time = std::stod(line);
        EXPECT_GE(time, last);
        longest = last == 0 ? 0 : std::max(longest, time - last);
        last = time;
    }
    EXPECT_GT(longest, 2);
    EXPECT_LT(longest, 30) << "the host's time, and no wrap";
}

// ---- registration ----

TEST(TaskRegistration, ASecondTaskOfTheNameIsRefusedUntilTheFirstHasEnded) {
    const std::string name = "bench / " + std::to_string(getpid());
    const Arguments arguments = engine({"--listen", "127.0.0.1:0", "--name", name});
    TaskProgram first(arguments);
    ASSERT_TRUE(first.await_output("registered as " + name + ", task "));
    const auto second = run_task(arguments);
    EXPECT_EQ(second.status, 6);
    EXPECT_EQ(second.errors,
              "error log: xcp_daq/xcp_daq_master_init:101: 66 0: aborting - there is "
              "already a <" +
                  name +
                  "> version running\nxcp_daq_task: the host did not register the "
                  "name " +
                  name + "\n");
    first.signal(SIGKILL);
    EXPECT_EQ(first.wait().status, 128 + SIGKILL);
    TaskProgram third(arguments);
    EXPECT_TRUE(third.await_output("registered as " + name));
}

TEST(TaskRegistration, WithoutARuntimeTheTaskEnds) {
    setenv("HALMOR_STANDIN", "stopped", 1);
    const auto end = run_task(engine({}));
    EXPECT_EQ(end.status, 6);
    EXPECT_EQ(end.output, "\n Halmor must be running to use this task \n");
}

// ---- logs, dump, replay, recording ----

TEST(TaskFiles, ADumpReplaysToTheSameValues) {
    const TemporaryFile log;
    const TemporaryFile measurements;
    const auto recorded =
        run_task(recording({"--pcap", data + "/slave_excerpt.pcap", "--pace", "max", "--dump",
                            "--measurement-log", measurements.path()}));
    ASSERT_EQ(recorded.status, 0) << recorded.errors;
    const std::string dump = line_after(recorded.output, "dump in ");
    const auto replayed = run_task(with(data + "/slave.spec", measurements.path(),
                                        {"--replay", dump, "--log", log.path(), "--strict"}));
    ASSERT_EQ(replayed.status, 0) << replayed.errors;
    unlink(dump.c_str());

    EXPECT_EQ(table_of(recorded.output), table_of(replayed.output));
    EXPECT_EQ(table_of(recorded.output).size(), 25U);
    EXPECT_TRUE(has(replayed.output, "\nDAQ packets   5308\n"));
    EXPECT_TRUE(measurements.text().ends_with("\n---------\n"));
    EXPECT_TRUE(has(log.text(), "Halmor Variable Name: f_n found \n"));
    EXPECT_TRUE(has(log.text(), "\nDAQ Count 3\n")) << "the report";
    EXPECT_TRUE(has(log.text(), "\nStopped Logging[-0-9 ]+\n$"));
}

// A recording of 2 million values, twice what the recorder holds.
std::string long_capture() {
    constexpr std::size_t header = 24;
    std::ifstream excerpt(data + "/slave_excerpt.pcap", std::ios::binary);
    const std::string once{std::istreambuf_iterator<char>(excerpt), {}};
    std::string often = once;
    for (int i = 1; i < 100; ++i)
        often += once.substr(header);
    return often;
}

TEST(TaskFiles, ACaptureWaitsForTheRecorder) {
    const TemporaryFile capture(long_capture());
    const TemporaryFile record;
    const auto end =
        run_task(recording({"--pcap", capture.path(), "--pace", "max", "--record", record.path()}));
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.errors, "");
    EXPECT_TRUE(has(end.output, "values        2022000\n"));
    std::istringstream lines(record.text());
    std::string line;
    std::getline(lines, line);
    EXPECT_TRUE(line.starts_with("sample_time,f_n,f_u8,f_u16,f_u32,f_u64,f_clk,f_u8b,"));
    std::size_t values = 0;
    while (std::getline(lines, line))
        for (std::size_t comma = 0; (comma = line.find(',', comma)) != std::string::npos;)
            values += ++comma < line.size() && line[comma] != ',' && line[comma] != 'n' ? 1 : 0;
    EXPECT_EQ(values, 2022000U);
    EXPECT_TRUE(has(end.output, "\n  the slave was away 99 times\n")) << "CTR and clock begin anew";
}

// The source waits for the worker, the worker for the recorder, the recorder for whoever reads the
// pipe, which nobody does.
TEST(TaskFiles, ASecondSignalEndsWhateverWaits) {
    const TemporaryFile capture(long_capture());
    const TemporaryFile place;
    unlink(place.path().c_str());
    ASSERT_EQ(mkfifo(place.path().c_str(), 0600), 0);
    const int reader = open(place.path().c_str(), O_RDONLY | O_NONBLOCK);
    TaskProgram task(
        recording({"--pcap", capture.path(), "--pace", "max", "--record", place.path()}));
    ASSERT_TRUE(task.await_output(" 0 values/s"));
    task.signal(SIGTERM);
    task.signal(SIGINT);
    const auto end = task.wait();
    close(reader);
    EXPECT_EQ(end.status, 3);
    EXPECT_TRUE(std::regex_match(
        end.errors, std::regex("xcp_daq_task: .*: \\d+ lines were not written: the run was told "
                               "not to wait for the file.*\n")))
        << end.errors;
}

// ---- --check ----

TEST(TaskCheck, NamesWhatWouldNotDecode) {
    const TemporaryFile lists("@XCP_SERVER\nhost 1\n$\n@LIST1\nl DAQ t\na - -\nb - -\nlost - -\n"
                              "short -\n$\n@LIST1\n");
    const TemporaryFile kinds("a real\nb integer\nc integer\n");
    const TemporaryFile layout("a,0,0,0,3,0\na,0,0,0,2,0\nb,0,0,3,2,0\nx,0,0,2,1,0\n"
                               "b,4,192,0,4,0\nfiller,0,191,0,3,0\na,0,0,1,0,0,0,0,0\n"
                               "c,1,0,0,1,0\nc,1,0,1,-40,0,0,-40,120\n");
    const auto end =
        run_task(with(lists.path(), layout.path(), {"--variables", kinds.path(), "--check"}));
    EXPECT_EQ(end.status, 7);
    const std::vector<std::string> faults = {
        lists.path() + ":9: expected NAME TAG VARIABLE [OPTION]",
        lists.path() + ":11: @LIST1 is there already, in line 4",
        layout.path() + ":1: a: size 3 is none of 1, 2, 4 and 8",
        layout.path() + ":2: a: ODT entry 0 is there already",
        layout.path() + ":2: a is in DAQ list 0 twice: only the later one is converted",
        layout.path() + ":3: b: ODT entry 3 comes where 1 is missing",
        layout.path() + ":3: b: without a conversion it is always 0",
        layout.path() + ":4: x: ODT entry 2 comes too late, after 3",
        layout.path() + ":5: b: there is no DAQ list 4, only 0 to 3",
        layout.path() + ":5: b: no DAQ packet has ODT 192, only 0 to 191",
        layout.path() + ":5: b: without a conversion it is always 0",
        layout.path() +
            ":9: c: integer variable, 1 bytes: values of raw * factor + offset run from "
            "-40 to 215, and 0 to 255 is what stays exact",
        lists.path() + ":8: lost: " + layout.path() + " has no entry in DAQ list 0",
        lists.path() + ":8: lost: the host has no such variable",
    };
    std::string expected;
    for (const std::string& fault : faults)
        expected += "xcp_daq_task: " + fault + "\n";
    EXPECT_EQ(end.errors, expected);

    // A value of two words is one value, of the size that it has.
    const TemporaryFile pair("a,0,0,0,8,0\nb,0,0,1,2,0\na,0,0,0.5,1,0,0,-9,9,A_INT64\n"
                             "b,0,0,2,-3,0,1,0,100,UWORD 0x0FF0\n");
    const TemporaryFile two("@XCP_SERVER\nh 1\n$\n@LIST1\nl DAQ t\na - -\nb - -\n$\n");
    const auto words =
        run_task(with(two.path(), pair.path(), {"--variables", kinds.path(), "--check"}));
    EXPECT_EQ(words.errors, "") << "an integer variable with a type has no ranges to keep";
    EXPECT_TRUE(has(words.output, "DAQ list 0, ODT 0: 12 bytes\n  bytes   2 to   9  a +real +"
                                  "A_INT64, most significant byte first  \\* 0.5 \\+ 1, -9 to 9\n"
                                  "  bytes  10 to  11  b +integer +UWORD 0xff0, least significant "
                                  "byte first  \\* 2 \\+ -3, 0 to 100\n$"))
        << words.output;

    const auto good = run_task(engine({"--variables", variables, "--check"}));
    EXPECT_EQ(good.status, 0) << good.errors;
    EXPECT_TRUE(has(good.output, "DAQ list 0, ODT 0: 6 bytes; in a packet of 10, .*\n"
                                 "  bytes   2 to   3  engSpeed +real +most significant byte first"
                                 "  \\* 0.125 \\+ 0, 0 to 8000\n"))
        << good.output;
}

} // namespace
