// The whole task, run as a user runs it.

#include "table.h"
#include "task_program.h"
#include "temporary_file.h"
#include "udp_endpoint.h"

#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <regex>
#include <sstream>

#include <sys/socket.h>
#include <unistd.h>

using table::Bytes;

namespace {

const std::string data = XCP_DAQ_TEST_DATA;
const std::string examples = XCP_DAQ_EXAMPLES;

struct Row {
    std::string value;
    std::string sampleTime;
    std::string updates;
};

// The closing table by variable.
std::map<std::string, Row> table_of(const std::string& output) {
    std::map<std::string, Row> rows;
    const std::size_t start = std::min(output.find("variable "), output.size());
    std::istringstream text(output.substr(start, output.find("datagrams     ") - start));
    std::string line;
    for (std::getline(text, line); std::getline(text, line);) {
        std::istringstream words(line);
        std::string name;
        Row row;
        words >> name >> row.value >> row.sampleTime >> row.updates;
        if (row.value == "-" || row.sampleTime.find('.') != std::string::npos)
            rows[name] = row; // and not the line about fillers
    }
    return rows;
}

std::string counts_of(const std::string& output) {
    return output.substr(std::min(output.find("datagrams     "), output.size()));
}

TEST(Task, ReportsWhatARecordingHolds) {
    const auto end = run_task({data + "/slave.spec", "--table", data + "/slave.table", "--pcap",
                               data + "/slave_excerpt.pcap", "--pace", "max"});
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.errors, "");
    auto rows = table_of(end.output);
    EXPECT_EQ(rows["f_n"].value + " " + rows["f_n"].updates, "4513 1264");
    EXPECT_EQ(rows["s_n"].value + " " + rows["s_n"].updates, "450 126");
    EXPECT_EQ(rows["g_u16"].value, "13556");
    EXPECT_TRUE(std::regex_match(rows["f_n"].sampleTime, std::regex("\\d{10}\\.\\d{9}")));
    EXPECT_TRUE(end.output.find("fillers: 5 (entries of the table") != std::string::npos);
    EXPECT_TRUE(std::regex_match(
        counts_of(end.output),
        std::regex("datagrams     27 \\(128928 bytes\\)\nmessages      5310\nDAQ packets   5308\n"
                   "values        20220\nrate          \\d+ values/s over [0-9.]+ s\n"
                   "CTR gaps      0 \\(0 messages missing, 0 late, 0 repeated\\)\n"
                   "kernel drops  0\npriority      22 .*\ntrust         yes: .*\n")))
        << end.output;
}

TEST(Task, TellsWhatItDoesWhileItRuns) {
    const auto end =
        run_task({examples + "/engine.spec", "--table", examples + "/engine.table", "--variables",
                  examples + "/engine.variables", "--simulate", "--seconds", "2.2"});
    EXPECT_EQ(end.status, 0) << end.errors;
    EXPECT_TRUE(std::regex_search(
        end.output, std::regex("  2\\.\\d s  \\d+ datagrams  \\d+ DAQ packets  \\d+ values  "
                               "\\d+ values/s  0 CTR gaps  0 kernel drops  \\d+ waiting\n")))
        << end.output;
    for (const auto& [name, row] : table_of(end.output))
        EXPECT_NE(row.updates, "0") << name;
}

TEST(Task, AValueThatDoesNotArriveIsToldByTheStatus) {
    const TemporaryFile gap("engSpeed,0,0,0,2,0\nknock,0,0,2,1,0\nthrottle,0,1,0,4,0\n");
    const auto end = run_task(
        {examples + "/engine.spec", "--table", gap.path(), "--simulate", "--seconds", "0.2"});
    EXPECT_EQ(end.status, 2);
    EXPECT_TRUE(
        std::regex_match(end.errors, std::regex("xcp_daq_task: engSpeed: 0 of \\d+ values arrived\n"
                                                "xcp_daq_task: knock: 0 of \\d+ values arrived\n")))
        << end.errors;
    EXPECT_NE(end.output.find("never updated: engSpeed, torque, crankCount, knock, hostCoolant, "
                              "gear, fuelUsed, battery and 1 more\n"),
              std::string::npos)
        << end.output;
}

TEST(Task, SaysWhatWentWrongAndStrictMinds) {
    struct Case {
        std::string faults;
        int strictStatus;
        std::string counts; // regular expressions
        std::string doubts;
    };
    const std::string lost = "  packets were lost .see the counts.\n";
    const std::string late = "  \\d+ messages came out of order\n";
    const std::string twice = "  \\d+ messages came twice\n";
    const std::string jumps = "  the sample time jumped \\d+ times\n(    at engSpeed: .*\n){3}";
    const std::vector<Case> cases = {
        {"lost", 2, "[1-9]\\d* \\([1-9]\\d* messages missing, 0 late, 0 repeated", lost},
        {"repeated", 0, "0 \\(0 messages missing, 0 late, [1-9]\\d* repeated", twice},
        {"late", 0, "[1-9]\\d* \\(0 messages missing, [1-9]\\d* late, 0 repeated", late + jumps},
        {"jump", 0, "0 \\(0 messages missing, 0 late, 0 repeated", jumps},
        {"lost,repeated,late,jump", 2, "[1-9].*", lost + late + twice + jumps},
    };
    for (const Case& c : cases) {
        const auto end =
            run_task({examples + "/engine.spec", "--table", examples + "/engine.table",
                      "--simulate", "--faults", c.faults, "--seconds", "0.6", "--strict"});
        EXPECT_EQ(end.status, c.strictStatus) << c.faults;
        EXPECT_EQ(end.errors, "") << "what went out has arrived";
        EXPECT_TRUE(
            std::regex_search(end.output, std::regex("CTR gaps      " + c.counts)) &&
            std::regex_search(end.output, std::regex("trust         no:\n" + c.doubts + "$")))
            << end.output;
    }
}

TEST(Task, ReceivesFromTheNetworkUntilItIsSignalled) {
    const auto slave =
        halmor_standin::bound_udp_socket(halmor_standin::parse_endpoint("127.0.0.1:0"));
    const auto port = std::to_string(halmor_standin::local_endpoint(slave.get()).port);
    const TemporaryFile spec("@XCP_SERVER\n127.0.0.1 " + port +
                             "\n$\n@LIST1\nfast DAQ event\nspeed - -\n$\n");
    const TemporaryFile table("speed,0,0,0,2,0\nspeed,0,0,1,0,0,1,0,100000\n");
    TaskProgram task({spec.path(), "--table", table.path(), "--listen", "127.0.0.1:0", "--strict"});
    ASSERT_TRUE(task.await_output(" on 127.0.0.1:"));
    ASSERT_TRUE(task.await_output("\n"));

    // The first line tells the port that the system chose.
    std::smatch match;
    ASSERT_TRUE(std::regex_search(task.text(), match, std::regex("on (127.0.0.1:\\d+)\n")));
    const sockaddr_in address = to_sockaddr(halmor_standin::parse_endpoint(match[1]));
    for (const int n : {1, 2, 4}) {
        const Bytes payload =
            table::message({0, 0, static_cast<std::uint8_t>(n), 1}, static_cast<std::uint16_t>(n));
        sendto(slave.get(), payload.data(), payload.size(), 0,
               reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    task.signal(SIGTERM);
    const auto end = task.wait();
    EXPECT_EQ(end.status, 2) << "a message is missing, and --strict minds";
    EXPECT_NE(end.output.find("trust         no:\n  packets were lost"), std::string::npos);
    EXPECT_EQ(table_of(end.output)["speed"].value, "260");
    EXPECT_EQ(table_of(end.output)["speed"].updates, "3") << "what had arrived counts";
    EXPECT_NE(end.output.find("CTR gaps      1 (1 messages missing, 0 late, 0 repeated)"),
              std::string::npos);
}

// Bad input: one line that names place and cause, and the status.
TEST(Task, RefusesBadInputWithOneLine) {
    const std::string spec = examples + "/engine.spec";
    const std::string table = examples + "/engine.table";
    const TemporaryFile badSpec("@XCP_SERVER\n127.0.0.1:70000\n$\n");
    const TemporaryFile badTable("engSpeed,0,0,0,2,16\nengSpeed,0\n");
    const auto taken =
        halmor_standin::bound_udp_socket(halmor_standin::parse_endpoint("127.0.0.1:0"));
    const std::string inUse = to_text(halmor_standin::local_endpoint(taken.get()));
    const TemporaryFile noCapture("not a capture, whatever its name says");
    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::string errors; // a regular expression
    };
    const std::vector<Case> cases = {
        {{}, 1, ".*SPEC is required.*"},
        {{spec}, 1, ".*--table is required.*"},
        {{spec, "--table", table, "--seconds", "-1"}, 1, ".*--seconds.*"},
        {{spec, "--table", table, "--simulate", "--listen", "127.0.0.1:0"},
         1,
         "Requires at most 1 options be given from .*"},
        {{spec, "--table", table, "--simulate", "--pace", "max"}, 1, ".*--pace requires --pcap.*"},
        {{spec, "--table", table, "--faults", "lost"}, 1, "--faults requires --simulate.*"},
        {{spec, "--table", table, "--simulate", "--faults", "lost,cut"},
         1,
         "--faults: cut not in .*"},
        {{spec, "--table", table, "--listen", "nowhere"},
         1,
         "--listen: expected ADDRESS:PORT, found nowhere"},
        {{"/nonexistent.spec", "--table", table},
         3,
         "/nonexistent.spec: No such file or directory"},
        {{badSpec.path(), "--table", table}, 3, ".*@XCP_SERVER: port outside 0 to 65535: 70000"},
        {{spec, "--table", badTable.path()},
         3,
         badTable.path() + ":2: expected 6 fields .a measurement. or 9 .a conversion., found 2"},
        {{spec, "--table", table, "--pcap", noCapture.path()}, 3, noCapture.path() + ": .*"},
        {{spec, "--table", table, "--listen", "192.0.2.1:5555"},
         4,
         "cannot listen on 192.0.2.1:5555: .*"},
        {{spec, "--table", table, "--listen", inUse},
         4,
         "cannot listen on " + inUse + ": Address already in use"},
    };
    for (const Case& c : cases) {
        const auto end = run_task(c.arguments);
        EXPECT_EQ(end.status, c.status) << end.errors;
        EXPECT_EQ(end.output.find("datagrams"), std::string::npos) << "nothing was started";
        EXPECT_TRUE(std::regex_match(end.errors, std::regex("xcp_daq_task: " + c.errors + "\n")))
            << end.errors;
    }
}

// ---- registration ----

TEST(TaskRegistration, ASecondTaskOfTheNameIsRefusedUntilTheFirstHasEnded) {
    const std::string name = "bench_" + std::to_string(getpid());
    const std::vector<std::string> arguments = {examples + "/engine.spec",
                                                "--table",
                                                examples + "/engine.table",
                                                "--listen",
                                                "127.0.0.1:0",
                                                "--name",
                                                name,
                                                "--priority",
                                                "5"};
    TaskProgram first(arguments);
    ASSERT_TRUE(first.await_output("registered as " + name + ", task "));
    ASSERT_TRUE(first.await_output("priority 5 (recorded, not applied)\n"));
    const auto second = run_task(arguments);
    EXPECT_EQ(second.status, 6);
    EXPECT_EQ(second.errors,
              "error log: xcp_daq/xcp_daq_master_init:101: 66 0: aborting - there is "
              "already a <" +
                  name +
                  "> version running\nxcp_daq_task: the host did "
                  "not register the name " +
                  name + "\n");
    first.signal(SIGKILL);
    EXPECT_EQ(first.wait().status, 128 + SIGKILL);
    TaskProgram third(arguments);
    EXPECT_TRUE(third.await_output("registered as " + name));
}

TEST(TaskRegistration, WithoutARuntimeTheTaskEnds) {
    setenv("HALMOR_STANDIN", "stopped", 1);
    const auto end = run_task({examples + "/engine.spec", "--table", examples + "/engine.table"});
    EXPECT_EQ(end.status, 6);
    EXPECT_EQ(end.output, "\n Halmor must be running to use this task \n");
}

// ---- logs, dump, replay ----

std::string line_after(const std::string& text, const std::string& start) {
    const std::size_t at = text.find(start) + start.size();
    return text.substr(at, text.find('\n', at) - at);
}

TEST(TaskFiles, ARecordedRunReplaysToTheSameValues) {
    const TemporaryFile log;
    const TemporaryFile measurements;
    const std::string variables = examples + "/engine.variables";
    const auto recorded =
        run_task({examples + "/engine.spec", "--table", examples + "/engine.table", "--variables",
                  variables, "--simulate", "--seconds", "1", "--dump", "--log", log.path(),
                  "--measurement-log", measurements.path()});
    ASSERT_EQ(recorded.status, 0) << recorded.errors;
    const std::string dump = line_after(recorded.output, "dump in ");
    const auto replayed = run_task({examples + "/engine.spec", "--table", measurements.path(),
                                    "--variables", variables, "--replay", dump});
    ASSERT_EQ(replayed.status, 0) << replayed.errors;
    unlink(dump.c_str());

    const auto before = table_of(recorded.output);
    auto after = table_of(replayed.output);
    ASSERT_EQ(before.size(), 10U);
    for (const auto& [name, row] : before) {
        EXPECT_GT(std::stoi(row.updates), 10) << name;
        EXPECT_EQ(after[name].value + " " + after[name].updates, row.value + " " + row.updates);
    }
    EXPECT_EQ(line_after(replayed.output, "DAQ packets "),
              line_after(recorded.output, "DAQ packets "));

    EXPECT_TRUE(measurements.text().ends_with("\n---------\n"));
    EXPECT_NE(log.text().find("Halmor Variable Name: engSpeed found \n"), std::string::npos);
    EXPECT_NE(log.text().find("\nDAQ Count 3\n"), std::string::npos) << "the report";
    EXPECT_TRUE(std::regex_search(log.text(), std::regex("\nStopped Logging[-0-9 ]+\n$")));
}

TEST(TaskFiles, ARecordHoldsEveryValueOnce) {
    const TemporaryFile record;
    const auto end = run_task({examples + "/engine.spec", "--table", examples + "/engine.table",
                               "--simulate", "--seconds", "0.5", "--record", record.path()});
    ASSERT_EQ(end.status, 0) << end.errors;
    std::istringstream text(record.text());
    std::string line;
    std::getline(text, line);
    EXPECT_EQ(line, "sample_time,engSpeed,throttle,torque,crankCount,knock,hostCoolant,gear,"
                    "fuelUsed,battery,odometer");
    std::map<std::string, int> counts;
    std::map<std::string, std::string> last;
    std::string time;
    while (std::getline(text, line)) {
        std::istringstream names(
            "engSpeed,throttle,torque,crankCount,knock,hostCoolant,gear,fuelUsed,"
            "battery,odometer");
        std::istringstream cells(line);
        std::string cell;
        std::getline(cells, cell, ',');
        EXPECT_LT(time, cell) << "sample times go up";
        time = cell;
        for (std::string name; std::getline(names, name, ',');)
            if (std::getline(cells, cell, ',') && !cell.empty()) {
                ++counts[name];
                last[name] = cell;
            }
    }
    for (const auto& [name, row] : table_of(end.output)) {
        EXPECT_EQ(std::to_string(counts[name]), row.updates) << name;
        EXPECT_NEAR(std::stod(last[name]), std::stod(row.value), 1e-9 * std::stod(row.value))
            << name;
    }
}

TEST(TaskFiles, ACaptureWaitsForTheRecorder) {
    constexpr std::size_t header = 24;
    std::ifstream excerpt(data + "/slave_excerpt.pcap", std::ios::binary);
    const std::string once{std::istreambuf_iterator<char>(excerpt), {}};
    std::string often = once;
    for (int i = 1; i < 100; ++i) // 2 million values, twice what the recorder holds
        often += once.substr(header);
    const TemporaryFile capture(often);
    const TemporaryFile record;
    const auto end = run_task({data + "/slave.spec", "--table", data + "/slave.table", "--pcap",
                               capture.path(), "--pace", "max", "--record", record.path()});
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.errors, "");
    EXPECT_NE(end.output.find("values        2022000\n"), std::string::npos);
    std::istringstream lines(record.text());
    std::string line;
    std::size_t values = 0;
    for (std::getline(lines, line); std::getline(lines, line);)
        for (std::size_t comma = 0; (comma = line.find(',', comma)) != std::string::npos;)
            values += ++comma < line.size() && line[comma] != ',' ? 1 : 0;
    EXPECT_EQ(values, 2022000U);
}

TEST(TaskFiles, AFullDiskIsTold) {
    const auto end = run_task({examples + "/engine.spec", "--table", examples + "/engine.table",
                               "--simulate", "--seconds", "0.2", "--record", "/dev/full"});
    EXPECT_EQ(end.status, 3);
    EXPECT_TRUE(
        std::regex_match(end.errors, std::regex("xcp_daq_task: /dev/full: \\d+ lines were not "
                                                "written: No space left on device\n")))
        << end.errors;
}

TEST(TaskFiles, WrongReplayFilesAreNamed) {
    const auto replay = [](const std::vector<std::string>& file) {
        std::vector<std::string> arguments = {examples + "/engine.spec", "--table",
                                              examples + "/engine.table", "--replay"};
        arguments.insert(arguments.end(), file.begin(), file.end());
        return run_task(arguments);
    };
    const TemporaryFile good("4 \n0,2,1,2\n");
    EXPECT_EQ(replay({good.path()}).status, 0);
    const TemporaryFile gap("2 \n0,3\n0 \n\n2 \n0,3\n");
    const auto stopped = replay({gap.path()});
    EXPECT_EQ(stopped.status, 3);
    EXPECT_EQ(stopped.errors,
              "xcp_daq_task: " + gap.path() + ": record 2: no values behind the length line\n");
    EXPECT_NE(stopped.output.find("DAQ packets   1\n"), std::string::npos)
        << "the first one counts";
    EXPECT_EQ(replay({"/nonexistent"}).errors,
              "xcp_daq_task: /nonexistent: No such file or directory\n");
    if (access("/specs/api_xcp_frame_daq_data.txt", F_OK) != 0) {
        EXPECT_EQ(replay({}).errors, "xcp_daq_task: /specs/api_xcp_frame_daq_data.txt: "
                                     "No such file or directory\n");
    }
}

// ---- --check ----

TEST(TaskCheck, NamesWhatWouldNotDecode) {
    const TemporaryFile spec(
        "@XCP_SERVER\nhost 1\n$\n@LIST1\nl DAQ t\na - -\nb - -\nlost - -\n$\n");
    const TemporaryFile variables("a real\nb integer\n");
    const TemporaryFile table("a,0,0,0,3,0\na,0,0,0,2,0\nb,0,0,3,2,0\nx,0,0,2,1,0\n"
                              "b,4,192,0,4,0\nfiller,0,1,0,3,0\na,0,0,1,0,0,0,0,0\n");
    const auto end = run_task(
        {spec.path(), "--table", table.path(), "--variables", variables.path(), "--check"});
    EXPECT_EQ(end.status, 7);
    const std::vector<std::string> faults = {
        table.path() + ":1: a: size 3 is none of 1, 2, 4 and 8",
        table.path() + ":2: a: ODT entry 0 is there already",
        table.path() + ":2: a is in DAQ list 0 twice: only the later one is converted",
        table.path() + ":3: b: ODT entry 3 comes where 1 is missing",
        table.path() + ":3: b: without a conversion it is always 0",
        table.path() + ":4: x: ODT entry 2 comes too late, behind 3",
        table.path() + ":5: b: there is no DAQ list 4, only 0 to 3",
        table.path() + ":5: b: no DAQ packet has ODT 192, only 0 to 191",
        table.path() + ":5: b: without a conversion it is always 0",
        spec.path() + ": lost: " + table.path() + " has no entry in DAQ list 0",
        spec.path() + ": lost: the host has no such variable",
    };
    std::string expected;
    for (const std::string& fault : faults)
        expected += "xcp_daq_task: " + fault + "\n";
    EXPECT_EQ(end.errors, expected);
}

} // namespace
