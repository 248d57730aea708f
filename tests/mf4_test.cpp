// Recordings into measurement files, read back by links alone.

#include "io/file_error.h"
#include "mdf_reader.h"
#include "task/output/mf4_recorder.h"
#include "task_program.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <map>
#include <regex>
#include <sstream>
#include <thread>

#include <sys/resource.h>
#include <sys/stat.h>

using halmor_standin::Variable;
using halmor_standin::VariableKind;
using halmor_standin::VariableStore;

namespace {

bool never() {
    return false;
}

const Variable& variable(const std::string& name, VariableKind kind = VariableKind::real) {
    return VariableStore::instance().define(name, kind, "");
}

std::string losses_of(task::Recorder& recorder) {
    try {
        recorder.close();
    } catch (const io::FileError& error) {
        return error.what();
    }
    return "nothing";
}

// Nanoseconds since 1970.
std::int64_t time_in(const MdfContents& contents, double seconds) {
    return contents.start + std::llround(seconds * 1e9);
}
std::int64_t nanoseconds(const timespec& time) {
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

TEST(Mf4Recorder, WritesWhatCameAtEachTimeOfEachList) {
    const auto real = VariableKind::real;
    const auto integer = VariableKind::integer;
    task::RecordedList fast{"fast", "event1ms", {}};
    for (int i = 0; i < 9; ++i)
        fast.variables.push_back(
            {&variable("v" + std::to_string(i), i == 1 ? integer : real), i == 0 ? "°C" : ""});
    const Variable& unlisted = variable("unlisted");
    const task::RecordedList slow{"slow", "", {{&variable("w", integer), "A much longer unit"}}};
    const auto& v = fast.variables;
    const std::time_t now = std::time(nullptr);
    const timespec first{now + 10, 999'999'999};
    const timespec second{now + 86'400, 1};
    const TemporaryFile file;
    task::Mf4Recorder recorder(file.path(), {fast, slow}, task::NoRoom::waits, never);
    recorder.take(*v[0].variable, 0.1, {});
    recorder.take(*v[1].variable, -2147483648.0, first);
    recorder.take(*slow.variables[0].variable, 2147483647.0, first);
    recorder.take(*v[8].variable, -HUGE_VAL, first);
    recorder.take(unlisted, 1, first);
    recorder.take(*v[8].variable, 1e-300, first);
    recorder.gap(first, second);
    recorder.take(*v[8].variable, 4, second);
    EXPECT_EQ(losses_of(recorder), "nothing");

    const MdfContents contents = read_mdf(file.text());
    EXPECT_TRUE(contents.finalised);
    EXPECT_LE(std::abs(contents.start / 1'000'000'000 - now), 1);
    ASSERT_EQ(contents.lists.size(), 2U);
    EXPECT_EQ(contents.lists[0].name, "fast/event1ms");
    EXPECT_EQ(contents.lists[1].name, "slow/");
    const auto& channels = contents.lists[0].channels;
    ASSERT_EQ(channels.size(), 9U);
    EXPECT_EQ(channels[0], "v0 real °C");
    EXPECT_EQ(channels[1], "v1 integer ");
    EXPECT_EQ(contents.lists[1].channels.at(0), "w integer A much longer unit");

    struct Expected {
        std::size_t list;
        std::int64_t time;
        std::map<std::size_t, double> values;
    };
    const Expected expected[] = {
        {0, contents.start, {{0, 0.1}}}, // before the first timestamp
        {0, nanoseconds(first), {{1, -2147483648.0}, {8, -HUGE_VAL}}},
        {0, nanoseconds(first), {{8, 1e-300}}},
        {0, nanoseconds(second), {{8, 4}}},
        {1, nanoseconds(first), {{0, 2147483647}}},
    };
    std::size_t next[2] = {};
    for (const Expected& each : expected) {
        const MdfRecord& record = contents.lists[each.list].records.at(next[each.list]++);
        EXPECT_EQ(time_in(contents, record.seconds), each.time);
        for (std::size_t i = 0; i < record.values.size(); ++i)
            EXPECT_EQ(record.values[i],
                      each.values.contains(i) ? std::optional(each.values.at(i)) : std::nullopt);
    }
    EXPECT_EQ(contents.lists[0].records.size(), next[0]);
    EXPECT_EQ(contents.lists[1].records.size(), next[1]);
    ASSERT_EQ(contents.gaps.size(), 1U);
    EXPECT_EQ(time_in(contents, contents.gaps[0].begin), nanoseconds(first));
    EXPECT_EQ(time_in(contents, contents.gaps[0].end), nanoseconds(second));
}

// More blocks than a list of them holds, and the file opens after each.
TEST(Mf4File, OpensAtAnyMomentOfALongRun) {
    const TemporaryFile place;
    const task::MdfGroup group{"g", "", {{"v", "", task::mdf::NumberType::integer, 8, 4}}, 12, 1};
    task::MdfFile file(place.path(), 1, {group, group});
    for (std::size_t blocks = 0; blocks <= 600; ++blocks) {
        const MdfContents contents = read_mdf(place.text());
        ASSERT_FALSE(contents.finalised);
        ASSERT_EQ(contents.lists[0].records.size(), 3 * (blocks / 2));
        ASSERT_EQ(contents.lists[1].records.size(), 3 * ((blocks + 1) / 2));
        ASSERT_EQ(contents.gaps.size(), blocks / 100);
        ASSERT_TRUE(file.add_records(1 - blocks % 2, std::vector<std::uint8_t>(39)));
        ASSERT_TRUE(blocks % 100 != 99 || file.add_gap(1, 2));
    }
    EXPECT_TRUE(file.finalise());
    EXPECT_EQ(read_mdf(place.text()).lists[1].records.size(), 903U);
}

TEST(Mf4Recorder, HasWhatCameInTheFileSoon) {
    const task::RecordedList list{"l", "", {{&variable("full"), ""}, {&variable("empty"), ""}}};
    const TemporaryFile file;
    task::Mf4Recorder recorder(file.path(), {list}, task::NoRoom::waits, never);
    for (int i = 0; i < 1000; ++i)
        recorder.take(*list.variables[0].variable, i, {1, i});
    while (read_mdf(file.text()).lists[0].records.size() < 1000) // the last one is not full
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(read_mdf(file.text()).finalised);
}

TEST(Mf4Recorder, TellsWhatTheDiskRefused) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{1'500'000, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    const task::RecordedList list{"l", "", {{&variable("v"), ""}}};
    const TemporaryFile file;
    task::Mf4Recorder recorder(file.path(), {list}, task::NoRoom::waits, never);
    constexpr int given = 200'000; // records of 17 bytes
    for (int i = 0; i < given; ++i)
        recorder.take(*list.variables[0].variable, i, {1, i});
    const std::string losses = losses_of(recorder);
    std::smatch count;
    ASSERT_TRUE(std::regex_match(losses, count,
                                 std::regex(".*: (\\d+) records were not written: File too large")))
        << losses;
    const MdfContents contents = read_mdf(file.text());
    EXPECT_TRUE(contents.finalised);
    const auto& records = contents.lists[0].records;
    EXPECT_EQ(records.size() + std::stoul(count[1]), std::size_t{given});
    EXPECT_GT(records.size(), 40'000U) << "of 88 000 for which there was room";
    EXPECT_EQ(records.back().values.at(0), static_cast<double>(records.size() - 1));
}

TEST(Mf4Recorder, RefusesAPipeThatNobodyReads) {
    const TemporaryFile place;
    std::filesystem::remove(place.path());
    ASSERT_EQ(mkfifo(place.path().c_str(), 0600), 0);
    EXPECT_THROW(task::Mf4Recorder(place.path(), {}, task::NoRoom::waits, never), io::FileError);
}

// ---- the whole task ----

// What came under a name: nanoseconds from the first timestamp, -1 before it, and values.
using Came = std::map<std::string, std::vector<std::pair<std::int64_t, double>>>;

void count_from_first(Came& came) {
    std::int64_t first = std::numeric_limits<std::int64_t>::max();
    for (const auto& [name, values] : came)
        for (const auto& [time, value] : values)
            first = time > 0 ? std::min(first, time) : first;
    for (auto& [name, values] : came)
        for (auto& [time, value] : values)
            time = time > 0 ? time - first : -1;
}

Came came_as_csv(const std::string& text) {
    Came came;
    std::istringstream lines(text);
    std::vector<std::string> names;
    for (std::string line, cell; std::getline(lines, line);) {
        std::istringstream cells(line);
        std::getline(cells, cell, ',');
        const bool isHeader = names.empty();
        const std::int64_t time = isHeader ? 0 : std::stoll(cell.erase(cell.find('.'), 1));
        for (std::size_t i = 0; std::getline(cells, cell, ','); ++i)
            if (isHeader)
                names.push_back(cell);
            else if (!cell.empty())
                came[names.at(i)].emplace_back(time, std::stod(cell));
    }
    count_from_first(came);
    return came;
}

Came came_as_mf4(const MdfContents& contents) {
    Came came;
    for (const MdfList& list : contents.lists)
        for (const MdfRecord& record : list.records)
            for (std::size_t i = 0; i < record.values.size(); ++i)
                if (record.values[i])
                    came[list.channels[i].substr(0, list.channels[i].find(' '))].emplace_back(
                        std::llround(record.seconds * 1e9), *record.values[i]);
    count_from_first(came);
    return came;
}

TEST(Mf4Task, RecordsWhatTheCsvHas) {
    const std::string data = XCP_DAQ_TEST_DATA;
    const TemporaryFile csv("", ".csv");
    const TemporaryFile mf4("", ".Mf4");
    for (const std::string& record : {csv.path(), mf4.path()}) {
        const auto end =
            run_task({data + "/slave.spec", "--table", data + "/slave.table", "--pcap",
                      data + "/slave_excerpt.pcap", "--pace", "max", "--record", record});
        ASSERT_EQ(end.status, 0) << end.errors;
    }
    const MdfContents contents = read_mdf(mf4.text());
    const Came came = came_as_mf4(contents);
    EXPECT_EQ(came.size(), 25U);
    EXPECT_EQ(came, came_as_csv(csv.text()));
    ASSERT_EQ(contents.lists.size(), 3U);
    EXPECT_EQ(contents.lists[1].name, "slow/e10");
}

TEST(Mf4Task, LeavesAFileThatOpensWhenItIsKilled) {
    const TemporaryFile spec("@A2L_FILE\nengine.a2l\n$\n@A2L_FILEPATH\n" XCP_DAQ_EXAMPLES "\n$\n"
                             "@LIST1\nfast DAQ event1ms\nengSpeed - -\n$\n"
                             "@LIST3\nslow DAQ event20ms\nengSpeed - -\nbattery - volts\n$\n");
    const TemporaryFile file("", ".mf4");
    TaskProgram task({spec.path(), "--simulate", "--quiet", "--record", file.path()});
    ASSERT_TRUE(task.await_output("datagrams "));
    while (file.text().size() < 40'000) // of which lists take less than half
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    task.signal(SIGKILL);
    task.wait();
    const MdfContents contents = read_mdf(file.text());
    EXPECT_FALSE(contents.finalised);
    ASSERT_EQ(contents.lists.size(), 2U);
    EXPECT_EQ(contents.lists[0].name, "fast/event1ms");
    EXPECT_EQ(contents.lists[0].channels, std::vector<std::string>{"engSpeed real rpm"});
    EXPECT_EQ(contents.lists[1].name, "slow/event20ms");
    EXPECT_EQ(contents.lists[1].channels, std::vector<std::string>{"volts real V"});
    EXPECT_GT(contents.lists[0].records.size(), 500U);
    EXPECT_FALSE(contents.lists[1].records.empty());
}

} // namespace
