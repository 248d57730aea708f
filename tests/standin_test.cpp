// The stand-in host: variable store, variables file, spec-file parser.

#include "file_error.h"
#include "task_names.h"
#include "temporary_file.h"
#include "variable_store.h"
#include "variables_file.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <thread>

using namespace halmor_standin;

namespace {

// ---- variable store ----

DaqVariable descriptor_of(const std::string& name) {
    VariableId id{};
    DaqVariable descriptor{};
    if (find_variable(name.c_str(), &id) == 0)
        daq_variable_setup(&descriptor, &id, get_vrbl_adr(id));
    return descriptor;
}

TEST(VariableStore, WritesThroughTheHostsFunctions) {
    VariableStore& store = VariableStore::instance();
    store.define("r", VariableKind::real, "bench");
    store.define("i", VariableKind::integer, "bench");
    DaqVariable real = descriptor_of("r");
    DaqVariable integer = descriptor_of("i");
    EXPECT_EQ(real.kind, 1);
    EXPECT_EQ(integer.kind, 2);
    const timespec time{12, 34};
    set_daq_real(&real, 0.5, &time);
    set_daq_integer(&integer, -2147483647, &time);
    set_daq_integer(&integer, -2147483648, &time);
    const Sample sample = store.find("i")->read();
    EXPECT_EQ(sample.value, -2147483648.0);
    EXPECT_EQ(sample.updates, 2U);
    EXPECT_EQ(sample.sampleTime.tv_sec * 100 + sample.sampleTime.tv_nsec, 1234);
    EXPECT_EQ(store.find("r")->read().value, 0.5);
}

TEST(VariableStore, KeepsTheOwnerWhereItsClientsLook) {
    VariableStore& store = VariableStore::instance();
    store.define("r", VariableKind::real, "bench");
    store.define("i", VariableKind::integer, "bench");
    EXPECT_STREQ(static_cast<const char*>(descriptor_of("r").object) + 224, "bench");
    EXPECT_STREQ(static_cast<const char*>(descriptor_of("i").object) + 216, "bench");
}

TEST(VariableStore, KnowsOnlyWhatWasDefined) {
    VariableStore& store = VariableStore::instance();
    store.define("r", VariableKind::real, "");
    VariableId id{};
    EXPECT_NE(find_variable("x", &id), 0);
    EXPECT_EQ(get_vrbl_adr({{1, 0}}), nullptr) << "an identifier of somebody else's";
    EXPECT_THROW(store.define("r", VariableKind::integer, ""), std::invalid_argument);
    EXPECT_THROW(store.define("s", VariableKind::real, std::string(50, 'x')),
                 std::invalid_argument);
}

TEST(VariableStore, AReaderNeverSeesHalfAWrite) {
    Variable variable("v", VariableKind::real, "");
    std::atomic<bool> done = false;
    std::atomic<bool> torn = false;
    std::atomic<int> reads = 0;
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i)
        readers.emplace_back([&] {
            while (!done) {
                const Sample s = variable.read();
                ++reads;
                if (s.updates != static_cast<std::uint64_t>(s.value) ||
                    s.sampleTime.tv_sec != static_cast<time_t>(s.updates) ||
                    s.sampleTime.tv_nsec != static_cast<long>(s.updates))
                    torn = true;
            }
        });
    long writes = 0;
    while (writes < 1000000 || reads < 10000) {
        ++writes;
        variable.write(static_cast<double>(writes), {writes, writes});
    }
    done = true;
    for (auto& reader : readers)
        reader.join();
    EXPECT_FALSE(torn);
    EXPECT_EQ(variable.read().updates, static_cast<std::uint64_t>(writes));
}

// ---- variables file ----

std::string error_of(const std::string& text) {
    const TemporaryFile file(text);
    try {
        read_variables_file(file.path());
        return "";
    } catch (const FileError& error) {
        return std::string(error.what()).substr(file.path().size());
    }
}

TEST(VariablesFile, ReadsNamesKindsAndOwners) {
    const TemporaryFile file("# bench 4\n\nspeed real   # rpm\r\n\tgear integer gearbox\n");
    const auto definitions = read_variables_file(file.path());
    ASSERT_EQ(definitions.size(), 2U);
    EXPECT_EQ(definitions[0].name + "|" + definitions[0].owner, "speed|");
    EXPECT_EQ(definitions[0].kind, VariableKind::real);
    EXPECT_EQ(definitions[1].name + "|" + definitions[1].owner, "gear|gearbox");
    EXPECT_EQ(definitions[1].kind, VariableKind::integer);
}

TEST(VariablesFile, NamesTheLineThatIsWrong) {
    EXPECT_EQ(error_of("a real\nb\n"), ":2: expected NAME KIND [TASK], found 1 words");
    EXPECT_EQ(error_of("a real b c"), ":1: expected NAME KIND [TASK], found 4 words");
    EXPECT_EQ(error_of("\na Real"), ":2: kind must be integer or real, found Real");
    EXPECT_EQ(error_of("a real\nb real\na integer\n"), ":3: variable defined twice: a");
    EXPECT_EQ(error_of("a real " + std::string(50, 'x')),
              ":1: task name longer than 49 characters");
    EXPECT_THROW(read_variables_file("/nonexistent"), FileError);
    EXPECT_THROW(read_variables_file("/"), FileError);
}

// ---- spec-file parser ----

class SpecParser : public testing::Test {
  protected:
    char line[1024] = "before";

    using File = std::unique_ptr<std::FILE, decltype(&std::fclose)>;
    static File open(std::string& text) {
        return File(fmemopen(text.data(), text.size(), "r"), std::fclose);
    }
};

TEST_F(SpecParser, FindsSectionsAnywhereByTheirWholeKey) {
    std::string text = "@LIST10\nten\n @LIST1\nindented\n@LIST1 \t\r\none\r\n@A\nend";
    const File file = open(text);
    EXPECT_EQ(get_1st_line(file.get(), line, "@A"), 0) << "a last line without a line feed";
    EXPECT_STREQ(line, "end");
    EXPECT_EQ(get_next_line(file.get(), line), -1);
    EXPECT_EQ(get_1st_line(file.get(), line, "@LIST1"), 1);
    EXPECT_STREQ(line, "one");
    EXPECT_EQ(get_1st_line(file.get(), line, "@LIST"), -1);
    EXPECT_STREQ(line, "one") << "the caller's line stays when there is none";
    EXPECT_EQ(get_1st_line(file.get(), line, "end"), -1);
}

TEST_F(SpecParser, CutsLongLinesAndGoesOnWithTheNext) {
    std::string text = "@K\n" + std::string(5000, 'x') + "\r\nnext\n";
    const File file = open(text);
    EXPECT_EQ(get_1st_line(file.get(), line, "@K"), 1);
    EXPECT_EQ(std::string(line).size(), 1023U);
    EXPECT_EQ(get_next_line(file.get(), line), 1);
    EXPECT_STREQ(line, "next");
}

TEST_F(SpecParser, SplitsIntoSlots) {
    char tokens[4][8] = {"1", "2", "3", "4"};
    std::uint64_t unused = 0;
    std::strcpy(line, "  one\ttwotwotwo\r\n");
    EXPECT_EQ(parse_line(line, 4, 8, 6, tokens[0], &unused), 2U);
    EXPECT_STREQ(tokens[0], "one");
    EXPECT_STREQ(tokens[1], "twotwot") << "cut to its slot";
    EXPECT_STREQ(tokens[2], "") << "a slot without a token is emptied";
    std::strcpy(line, "h:1,, 2 3 4");
    EXPECT_EQ(parse_line_delim(line, 4, 8, 6, tokens[0], &unused, " ,:\t\n"), 4U);
    EXPECT_STREQ(tokens[3], "3");
}

// ---- task services ----

TEST(TaskNames, ANameHasOneHolder) {
    const std::string name = "odd / name." + std::to_string(getpid());
    EXPECT_EQ(task_of_name(name), -1);
    EXPECT_GE(take_name(name), 1);
    EXPECT_EQ(task_of_name(name), getpid());
    EXPECT_EQ(take_name(name), -1);
    EXPECT_EQ(task_of_name(name + "2"), -1);
}

} // namespace
