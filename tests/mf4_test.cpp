// Recordings into measurement files, read back by links alone.

#include "io/file_error.h"
#include "mdf_reader.h"
#include "task/output/mf4_recorder.h"
#include "task_program.h"
#include "temporary_file.h"

#include <fmt/format.h>
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

// A line of names and units, then one of each record: nanoseconds from the start, and values.
std::string text_of(const MdfList& list) {
    std::string text = fmt::format("{}: {}", list.name, fmt::join(list.channels, ", "));
    for (const MdfRecord& record : list.records) {
        text += fmt::format("\n{}", std::llround(record.seconds * 1e9));
        for (const auto& value : record.values)
            text += value ? fmt::format(" {}", *value) : " -";
    }
    return text;
}

TEST(Mf4Recorder, WritesWhatCameAtEachTimeOfEachList) {
    task::RecordedList fast{"fast", "event1ms", {{&variable("v0"), "°C"}}};
    fast.variables.push_back({&variable("v1", VariableKind::integer), ""});
    for (const char* name : {"v2", "v3", "v4", "v5", "v6", "v7", "v8"})
        fast.variables.push_back({&variable(name), ""});
    const auto& w = variable("w", VariableKind::integer);
    const auto& v = fast.variables;
    const std::time_t now = std::time(nullptr);
    const timespec first{now + 10, 999'999'999};
    const timespec later{now + 86'400, 1};
    const TemporaryFile file;
    task::Mf4Recorder recorder(file.path(), {fast, {"slow", "", {{&w, "A longer unit"}}}},
                               task::NoRoom::waits, never);
    recorder.take(*v[0].variable, 0.1, {}); // before the first timestamp
    recorder.take(*v[1].variable, -2147483648.0, first);
    recorder.take(w, 2147483647.0, first);
    recorder.take(*v[8].variable, -HUGE_VAL, first);
    recorder.take(*v[8].variable, 1e-300, first);
    recorder.gap(first, later);
    recorder.take(*v[8].variable, 4, later);
    recorder.close();

    const MdfReader read(file.text());
    EXPECT_TRUE(read.finalised);
    EXPECT_LE(std::abs(read.start / 1'000'000'000 - now), 1);
    const std::int64_t firstTime = (now + 10) * 1'000'000'000 + 999'999'999 - read.start;
    const std::int64_t laterTime = (now + 86'400) * 1'000'000'000 + 1 - read.start;
    ASSERT_EQ(read.lists.size(), 2U);
    EXPECT_EQ(text_of(read.lists[0]),
              fmt::format("fast/event1ms: v0 real °C, v1 integer , v2 real , v3 real , v4 real , "
                          "v5 real , v6 real , v7 real , v8 real \n0 0.1 - - - - - - - -\n"
                          "{0} - -2147483648 - - - - - - -inf\n{0} - - - - - - - - 1e-300\n"
                          "{1} - - - - - - - - 4",
                          firstTime, laterTime));
    EXPECT_EQ(text_of(read.lists[1]),
              fmt::format("slow/: w integer A longer unit\n{} 2147483647", firstTime));
    ASSERT_EQ(read.gaps.size(), 1U);
    EXPECT_EQ(read.gaps[0], std::pair(firstTime, laterTime));
}

// Adds blocks of two groups in turn, and gaps, until the disk is full or there are more blocks than
// one list of them holds.
void fill(task::MdfFile& file, const TemporaryFile& place) {
    for (std::size_t blocks = 0; blocks < 600; ++blocks) {
        if (!file.add_records(1 - blocks % 2, std::vector<std::uint8_t>(39)) ||
            (blocks % 100 == 3 && !file.add_gap(1, 2)))
            return;
        const MdfReader read(place.text());
        ASSERT_EQ(read.lists[0].records.size(), (blocks + 1) / 2 * 3);
        ASSERT_EQ(read.lists[1].records.size(), (blocks + 2) / 2 * 3);
        ASSERT_EQ(read.gaps.size(), (blocks + 97) / 100);
    }
}

TEST(Mf4File, OpensAtAnyMomentOfARun) {
    std::signal(SIGXFSZ, SIG_IGN);
    const task::MdfGroup group{"g", "", {{"v", "", task::mdf::NumberType::integer, 8, 4}}, 12, 1};
    const TemporaryFile place;
    for (rlimit limit{2000, RLIM_INFINITY}; limit.rlim_cur < 18'000; limit.rlim_cur += 80) {
        setrlimit(RLIMIT_FSIZE, &limit);
        task::MdfFile file(place.path(), 1, {group, group});
        fill(file, place);
        EXPECT_EQ(file.error(), "File too large");
        EXPECT_NO_THROW(MdfReader(place.text())) << "full at " << limit.rlim_cur;
    }
    const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &none);
    task::MdfFile file(place.path(), 1, {group, group});
    fill(file, place);
    EXPECT_TRUE(file.finalise());
    EXPECT_EQ(MdfReader(place.text()).lists[1].records.size(), 900U);
}

TEST(Mf4Recorder, HasWhatCameInTheFileSoon) {
    const task::RecordedList list{"l", "", {{&variable("full"), ""}, {&variable("empty"), ""}}};
    const TemporaryFile file;
    task::Mf4Recorder recorder(file.path(), {list}, task::NoRoom::waits, never);
    for (int i = 0; i < 1000; ++i)
        recorder.take(*list.variables[0].variable, i, {1, i});
    while (MdfReader(file.text()).lists[0].records.size() < 1000) // the last one is not full
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

TEST(Mf4Recorder, TellsWhatTheDiskRefused) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{1'500'000, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    const task::RecordedList list{"l", "", {{&variable("v"), ""}}};
    const TemporaryFile file;
    task::Mf4Recorder recorder(file.path(), {list}, task::NoRoom::waits, never);
    for (int i = 0; i < 200'000; ++i) // records of 17 bytes
        recorder.take(*list.variables[0].variable, i, {1, i});
    std::string losses;
    try {
        recorder.close();
    } catch (const io::FileError& error) {
        losses = error.what();
    }
    std::smatch count;
    const std::regex line(".*: (\\d+) records were not written: File too large");
    ASSERT_TRUE(std::regex_match(losses, count, line)) << losses;
    const MdfReader read(file.text());
    EXPECT_TRUE(read.finalised);
    const std::size_t records = read.lists[0].records.size();
    EXPECT_EQ(records + std::stoul(count[1]), 200'000U);
    EXPECT_EQ(read.lists[0].records.back().values.at(0), static_cast<double>(records - 1));
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

Came from_first_time(Came came) {
    std::int64_t first = 0;
    for (const auto& [time, value] : came.at("f_n"))
        first = first == 0 ? time : first;
    for (auto& [name, values] : came)
        for (auto& [time, value] : values)
            time = time > 0 ? time - first : -1;
    return came;
}

std::vector<std::string> parts_of(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        parts.push_back(part);
    return parts;
}

Came came_as_csv(const std::string& text) {
    Came came;
    const auto names = parts_of(text.substr(0, text.find('\n')), ',');
    for (const std::string& line : parts_of(text.substr(text.find('\n') + 1), '\n')) {
        auto cells = parts_of(line, ',');
        const std::int64_t time = std::stoll(cells[0].erase(cells[0].find('.'), 1));
        for (std::size_t i = 1; i < cells.size(); ++i)
            if (!cells[i].empty())
                came[names.at(i)].emplace_back(time, std::stod(cells[i]));
    }
    return from_first_time(came);
}

Came came_as_mf4(const MdfReader& read) {
    Came came;
    for (const MdfList& list : read.lists)
        for (const MdfRecord& record : list.records)
            for (std::size_t i = 0; i < record.values.size(); ++i)
                if (record.values[i])
                    came[list.channels[i].substr(0, list.channels[i].find(' '))].emplace_back(
                        std::llround(record.seconds * 1e9), *record.values[i]);
    return from_first_time(came);
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
    const MdfReader read(mf4.text());
    const Came came = came_as_mf4(read);
    EXPECT_EQ(came.size(), 25U);
    EXPECT_EQ(came, came_as_csv(csv.text()));
    EXPECT_EQ(read.lists.at(1).name, "slow/e10");
}

TEST(Mf4Task, LeavesAFileThatOpensWhenItIsKilled) {
    const TemporaryFile spec("@A2L_FILE\nengine.a2l\n$\n@A2L_FILEPATH\n" XCP_DAQ_EXAMPLES "\n$\n"
                             "@LIST1\nfast DAQ event1ms\nengSpeed - -\n$\n"
                             "@LIST3\nslow DAQ event20ms\nengSpeed - -\nbattery - volts\n$\n");
    const TemporaryFile file("", ".mf4");
    TaskProgram task({spec.path(), "--simulate", "--quiet", "--record", file.path()});
    while (file.text().size() < 40'000) // of which lists of blocks take less than half
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    task.signal(SIGKILL);
    task.wait();
    const MdfReader read(file.text());
    EXPECT_FALSE(read.finalised);
    ASSERT_EQ(read.lists.size(), 2U);
    EXPECT_TRUE(text_of(read.lists[0]).starts_with("fast/event1ms: engSpeed real rpm\n"));
    EXPECT_TRUE(text_of(read.lists[1]).starts_with("slow/event20ms: volts real V\n"));
    EXPECT_GT(read.lists[0].records.size(), 500U);
}

} // namespace
