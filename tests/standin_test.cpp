// The stand-in host: what the task's own tests do not see of it.

#include "api_xcp_daq.h"
#include "host/standin/variable_store.h"

#include <gtest/gtest.h>

#include <atomic>
#include <bit>
#include <cmath>
#include <cstring>
#include <ctime>
#include <random>
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
    const auto mark_of = [](const char* name, VariableKind kind, const char* owner, int at,
                            const std::optional<RawForm>& form = {}) {
        Variable& variable = VariableStore::instance().define(name, kind, owner, form);
        api_xcp_daq::addMeasurement(name, 0, 0, 0, 1, 0);
        std::uint16_t word;
        std::memcpy(&word, reinterpret_cast<const char*>(&variable) + at, sizeof word);
        return word;
    };
    EXPECT_EQ(mark_of("r", VariableKind::real, "bench", 54), 1);
    EXPECT_EQ(mark_of("i", VariableKind::integer, "bench", 2), 1);
    EXPECT_EQ(mark_of("words", VariableKind::integer, "bench", 54, RawForm{}), 1) << "as real";
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

// ---- raw words ----

// The same once more, byte by byte and in the arithmetic of long doubles, which hold 64 bits.
double slow_number(const RawNumber& number, bool msbFirst, const std::vector<std::uint8_t>& bytes) {
    const std::size_t size = bytes.size();
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < size; ++i)
        bits = bits * 256 + bytes[msbFirst ? i : size - 1 - i];
    if (number.type == RawType::float64_ieee)
        return std::bit_cast<double>(bits);
    if (number.type == RawType::float32_ieee)
        return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
    if (number.type == RawType::float16_ieee) {
        const double sign = bits >= 0x8000 ? -1 : 1;
        const int exponent = static_cast<int>(bits / 1024 % 32);
        const double fraction = static_cast<double>(bits % 1024) / 1024;
        if (exponent == 31)
            return fraction == 0 ? sign * HUGE_VAL : std::nan("");
        return sign * (exponent == 0 ? fraction * std::pow(2, -14)
                                     : (1 + fraction) * std::pow(2, exponent - 15));
    }
    const int width = static_cast<int>(8 * size);
    const std::uint64_t left = bits & number.bitMask;
    long double value = static_cast<long double>(left);
    if (is_signed(number.type) && (left >> (width - 1) & 1) != 0)
        value -= std::ldexp(1.0L, width);
    for (std::uint64_t mask = number.bitMask; mask % 2 == 0 && mask != 0; mask /= 2)
        value /= 2;
    return static_cast<double>(std::floor(value));
}

TEST(RawForm, MakesTheNumberOfEveryTypeOrderAndMask) {
    std::mt19937_64 random(3);
    const std::uint8_t edges[] = {0, 1, 0x7C, 0x7F, 0x80, 0xFC, 0xFE, 0xFF};
    const std::uint64_t masks[] = {every_bit, 0xF8, 0x0FF0, 0xFFFF8000, every_bit << 5, 1, 0};
    for (int i = 0; i < 300000; ++i) {
        const RawNumber number{static_cast<RawType>(i % 11), masks[i / 11 % 7]};
        const bool msbFirst = random() % 2 == 0;
        std::vector<std::uint8_t> bytes(size_of(number.type));
        for (std::uint8_t& byte : bytes)
            byte = random() % 2 == 0 ? edges[random() % 8] : static_cast<std::uint8_t>(random());
        std::uint64_t raw = 0;
        std::memcpy(&raw, bytes.data(), bytes.size());
        const RawForm form{number, msbFirst};
        const double expected = slow_number(number, msbFirst, bytes);
        const double got = RawConversion(form).value(raw);
        const bool half = number.type == RawType::float16_ieee; // of NaN no more than that
        ASSERT_TRUE(std::bit_cast<std::uint64_t>(got) == std::bit_cast<std::uint64_t>(expected) ||
                    (half && std::isnan(got) && std::isnan(expected)))
            << name_of(number.type) << ' ' << msbFirst << std::hex << ' ' << number.bitMask << ' '
            << raw << ": " << got << " instead of " << expected;
        const double converted = RawConversion({number, msbFirst, 0.1, -3, -50, 90}).value(raw);
        if (const double exact = expected * 0.1 + -3; !std::isnan(exact))
            ASSERT_EQ(converted, exact > 90 ? 90 : exact < -50 ? -50 : exact);
        else
            ASSERT_TRUE(std::isnan(converted)) << "no limit makes a number of it";
    }
}

struct Writes : WriteObserver {
    Writes() { VariableStore::observe(this); }
    ~Writes() override { VariableStore::observe(nullptr); }
    void written(const Variable&, double value, const timespec&) override {
        values.push_back(value);
    }
    std::vector<double> values;
};

DaqVariable descriptor_of(const std::string& name) {
    DaqVariable descriptor{};
    VariableId id{};
    if (find_variable(name.c_str(), &id) == 0)
        daq_variable_setup(&descriptor, &id, get_vrbl_adr(id));
    return descriptor;
}

TEST(VariableStore, MakesAValueOfTheWordsOfOneSample) {
    VariableStore& store = VariableStore::instance();
    const RawForm form{{RawType::a_int64}};
    Variable& variable = store.define("d", VariableKind::real, "", form);
    EXPECT_THROW(store.define("d#1", VariableKind::real, ""), std::invalid_argument);
    store.define("e#1", VariableKind::real, "");
    EXPECT_THROW(store.define("e", VariableKind::real, "", form), std::invalid_argument);
    EXPECT_EQ(store.find("d#1"), nullptr);
    EXPECT_EQ(store.variables().size(), 2U);
    DaqVariable words[] = {descriptor_of("d"), descriptor_of("d#1")};
    ASSERT_EQ(words[1].object, &variable);
    const Writes writes;
    const struct {
        std::size_t word;
        double bytes;
        long second;
    } sequence[] = {{1, 0, 1}, {0, 5, 2}, {1, 1, 2}, {1, 1, 2},         {0, 7, 3},
                    {1, 1, 4}, {0, 8, 5}, {0, 9, 6}, {1, 0xFFFFFFFF, 6}};
    for (const auto& [word, bytes, second] : sequence) {
        const timespec time{second, 0};
        set_daq_real(&words[word], bytes, &time);
    }
    EXPECT_EQ(writes.values, (std::vector<double>{0x1p32 + 5, -0x1p32 + 9}));
    EXPECT_EQ(variable.read().updates, 2U);
    EXPECT_EQ(variable.read().sampleTime.tv_sec, 6);
}

TEST(VariableStore, HoldsWhatAnIntegerVariableCannotTake) {
    Variable& variable = VariableStore::instance().define(
        "f", VariableKind::integer, "bench", RawForm{{RawType::float32_ieee}, false, 1, 0.75});
    DaqVariable word = descriptor_of("f");
    EXPECT_EQ(word.kind, 1) << "words are written as real values";
    const Writes writes;
    const float numbers[] = {1.5F,           -3.0F,  -0.9F,     2147483520.0F, 2147483648.0F,
                             -2147483648.0F, -1e10F, HUGE_VALF, -HUGE_VALF,    std::nanf("")};
    const timespec time{1, 0};
    for (const float number : numbers)
        set_daq_real(&word, std::bit_cast<std::uint32_t>(number), &time);
    EXPECT_EQ(writes.values, (std::vector<double>{2, -2, 0, 2147483520, 2147483647, -2147483647,
                                                  -0x1p31, 2147483647, -0x1p31, 0}));
    EXPECT_EQ(variable.held_values(), 5U);
}

TEST(TaskServices, ClockFiveHasTheTimeOfDay) {
    timespec now{};
    SrrClockGettime(5, &now);
    EXPECT_NEAR(static_cast<double>(now.tv_sec), static_cast<double>(std::time(nullptr)), 5);
}

} // namespace
