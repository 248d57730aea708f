// The stand-in host: what the task's own tests do not see of it.

#include "api_xcp_daq.h"
#include "host/standin/variable_store.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <ctime>
#include <thread>
#include <vector>

using namespace halmor_standin;

namespace {

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
    while (writes < 10000000 || reads < 10000) {
        ++writes;
        variable.write(static_cast<double>(writes), {writes, writes});
    }
    done = true;
    for (auto& reader : readers)
        reader.join();
    EXPECT_FALSE(torn);
    EXPECT_EQ(variable.read().updates, static_cast<std::uint64_t>(writes));
}

// The library looks for the owner's name in the object and puts its mark there.
TEST(VariableStore, KeepsOwnerAndMarkWhereItsClientsLook) {
    const api_xcp_daq object;
    appData.registeredName = "bench";
    const auto mark_of = [](const char* name, VariableKind kind, const char* owner, int at) {
        Variable& variable = VariableStore::instance().define(name, kind, owner);
        api_xcp_daq::addMeasurement(name, 0, 0, 0, 1, 0);
        std::uint16_t word;
        std::memcpy(&word, reinterpret_cast<const char*>(&variable) + at, sizeof word);
        return word;
    };
    EXPECT_EQ(mark_of("r", VariableKind::real, "bench", 54), 1);
    EXPECT_EQ(mark_of("i", VariableKind::integer, "bench", 2), 1);
    EXPECT_EQ(mark_of("other", VariableKind::integer, "bench2", 2), 0);
}

TEST(VariableStore, KnowsOnlyWhatWasDefined) {
    VariableStore& store = VariableStore::instance();
    store.define("r", VariableKind::real, "");
    VariableId id{};
    EXPECT_NE(find_variable("x", &id), 0);
    EXPECT_EQ(find_variable("r", &id), 0);
    EXPECT_NE(get_vrbl_adr(id), nullptr);
    EXPECT_EQ(get_vrbl_adr({{id.word[0], 0}}), nullptr) << "an identifier of somebody else's";
    EXPECT_THROW(store.define("r", VariableKind::integer, ""), std::invalid_argument);
    store.define("s", VariableKind::real, std::string(49, 'x'));
    EXPECT_THROW(store.define("t", VariableKind::real, std::string(50, 'x')),
                 std::invalid_argument);
}

TEST(TaskServices, ClockFiveHasTheTimeOfDay) {
    timespec now{};
    SrrClockGettime(5, &now);
    EXPECT_NEAR(static_cast<double>(now.tv_sec), static_cast<double>(std::time(nullptr)), 5);
}

} // namespace
