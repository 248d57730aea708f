// One DAQ packet into host variables with their sample time.

#include "api_xcp_daq.h"
#include "decoder_reference.h"
#include "host_double.h"
#include "table.h"
#include "temporary_file.h"
#include "xcp_daq/value_conversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>

using decoder_reference::Measurement;
using host_double::host;
using host_double::Time;
using table::add_plain;
using table::Bytes;

namespace {

// What a negative size leads to is watched by the address sanitizer.
TEST(Decoder, TellsOrPassesOverWhatFitsNoEntry) {
    const api_xcp_daq object;
    for (const char* name : {"a", "b", "c"})
        host().define(name, host_double::real);
    const std::tuple<const char*, int, int, int> entries[] = {
        {"a", 9, 0, 1},  {"a", 9, 0, 1}, // counts twice
        {"a", 0, 0, 3},  {"b", 0, 1, 0}, {"unbound", 0, 2, 5}, {"c", 0, 3, 1},
        {"a", 1, 0, 1},  {"b", 1, 2, 1}, {"c", 1, 2, 1}, // a gap
        {"a", 2, 1, 1},  {"b", 2, 1, 1},                 // no entry 0
        {"a", 5, 0, -1},                                 // 5 bytes if stamped
        {"b", 6, 0, -5}, {"c", 6, 1, 4},                 // at byte -3
    };
    for (const auto& [name, odt, index, size] : entries)
        add_plain(name, 0, odt, index, size, MODE_TIMESTAMP);
    const std::string unable = "buffer.size = 3 Unable daqNum= ";
    const std::string odt9 = " OdtEntryIndex= 9 to find entry in using odt 9 ";
    const std::tuple<Bytes, std::string, std::vector<double>> cases[] = {
        {Bytes{}, "", {}},
        {{9}, "", {}},
        {{0, 4}, "Received Invalid buffer or out of range daqNum = 4\n", {}},
        {{9, 2, 0}, unable + "2" + odt9 + "-1\n", {}},
        {{9, 0, 0}, unable + "0" + odt9 + "1\n", {}},
        {{0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 99},
         " Invalid odt entry size 3\n Invalid odt entry size 0\n",
         {99}},
        {{1, 0, 5, 6, 7}, "", {5}},
        {{2, 0, 5, 6, 7}, "", {}},
        {{5, 0, 1, 2, 3}, " Invalid odt entry size -1\n", {}},
        {{6, 0, 1, 2, 3}, " Invalid odt entry size -5\n", {}},
    };
    for (const auto& [packet, output, expected] : cases) {
        EXPECT_EQ(output_of(api_xcp_daq::processFrame, packet, nullptr), output);
        std::vector<double> values;
        for (const auto& write : host().take_writes())
            values.push_back(write.value);
        EXPECT_EQ(values, expected) << output;
    }
}

TEST(SwapBytes, ReversesTwoFourAndEachHalfOfEight) {
    for (const int order : {0, 1, -1, 256})
        for (int size = -8; size <= 16; ++size) {
            Bytes bytes = {1, 2, 3, 4, 5, 6, 7, 8};
            Bytes expected = bytes;
            const bool swaps = order == 0 && (size == 2 || size == 4 || size == 8);
            for (auto at = expected.begin(); swaps && at < expected.begin() + size; at += 4)
                std::reverse(at, at + std::min(size, 4));
            EXPECT_EQ(swap_bytes_endiness(size, order, bytes.data()), swaps ? 1 : 0);
            EXPECT_EQ(bytes, expected) << size << " in order " << order;
        }
}

// At the limits, which the low 32 bits that reach a variable rarely show.
TEST(ValueConversion, TruncatesAndClampsAtTheLimits) {
    using namespace xcp_daq;
    constexpr auto top = std::uint64_t{1} << 63;
    const std::tuple<double, std::int32_t, std::int64_t, std::uint64_t> cases[] = {
        {-0.5, 0, 0, 0},
        {-2.9, -2, -2, 0xFFFFFFFFFFFFFFFE},
        {2147483647.9, 2147483647, 2147483647, 2147483647},
        {-2147483648.9, INT32_MIN, -2147483648, 0xFFFFFFFF80000000},
        {2147483648.0, INT32_MIN, 2147483648, 2147483648},
        {1e19, INT32_MIN, INT64_MIN, 10000000000000000000U},
        {2 * two_to_63, INT32_MIN, INT64_MIN, 0},
        {-1e19, INT32_MIN, INT64_MIN, top},
        {NAN, INT32_MIN, INT64_MIN, top},
    };
    for (const auto& [x, i32, i64, u64] : cases) {
        EXPECT_EQ(std::tuple(trunc_i32(x), trunc_i64(x), trunc_u64(x)), std::tuple(i32, i64, u64));
        EXPECT_EQ(std::tuple(portable::trunc_i32(x), portable::trunc_i64(x)), std::tuple(i32, i64));
    }
    EXPECT_EQ(check_bounds(5, 3, 10), 3) << "the upper limit comes first";
    EXPECT_EQ(check_long_bounds(2000, 1000.0, 1500.0), 1000U);
    EXPECT_EQ(check_long_bounds(5, 1000.0, 1500.0), 1500U);
    EXPECT_EQ(check_long_bounds(5, 1000.0, -100.0), 0xFFFFFFFFFFFFFF9CU);
    EXPECT_EQ(check_long_bounds(top + 10, 1.8446744073709552e19, 0.0), 0U);
}

// ---- against the reference ----

std::mt19937_64 random_bits{20261122};

std::uint8_t random_byte() {
    return static_cast<std::uint8_t>(random_bits());
}

double random_number() {
    using xcp_daq::two_to_63;
    constexpr double special[] = {
        0,       1,          -1,          0.5,        -0.1,      255,        256,
        65535.5, 4294967295, -4294967296, 2147483648, two_to_63, -two_to_63, 2 * two_to_63,
        1e300,   -1e300,     INFINITY,    -INFINITY,  NAN};
    if (random_bits() % 3 == 0)
        return special[random_bits() % std::size(special)];
    return std::ldexp(std::uniform_real_distribution(-1.0, 1.0)(random_bits),
                      static_cast<int>(random_bits() % 72));
}

// An ODT whose first entry has the mode.
std::vector<Measurement> add_random_odt(int daq, int number, std::uint8_t mode) {
    std::vector<Measurement> odt(1 + random_bits() % 6);
    int index = 0;
    for (Measurement& m : odt) {
        m.name = std::to_string(number) + "_" + std::to_string(index);
        m.kind = static_cast<std::uint16_t>(1 + random_bits() % 3);
        m.size = 1 << random_bits() % 4;
        m.byteOrder = static_cast<int>(random_bits() % 3) - 1;
        for (double* x : {&m.factor, &m.offset, &m.lower, &m.upper})
            *x = random_number();
        host().define(m.name, m.kind);
        api_xcp_daq::addMeasurement(m.name, daq, number, index++, m.size, mode);
        api_xcp_daq::addComputeMethod(m.name, daq, 0, m.factor, m.offset, 0, m.byteOrder, m.lower,
                                      m.upper);
        mode = random_byte();
    }
    return odt;
}

TEST(DecoderAgainstReference, RandomTablesAndPacketsOfEveryLength) {
    const api_xcp_daq object;
    constexpr std::int64_t second = 1000000000;
    timespec base{1000, 5};
    decoder_reference::SampleTime time;
    for (std::uint8_t number = 0; number < 190; ++number) {
        const std::uint8_t daq = number % 4;
        const bool stamped = number % 2 == 0;
        const auto odt = add_random_odt(
            daq, number, stamped ? random_byte() | MODE_TIMESTAMP : random_byte() & 0xEF);
        const auto full = appData.daqList[daq].odtTableInfo.at(number).odtLength;
        for (std::int64_t length = 2; length <= full + 5; ++length) {
            Bytes packet(static_cast<std::size_t>(length));
            std::generate(packet.begin(), packet.end(), random_byte);
            packet[0] = number;
            packet[1] = daq;
            api_xcp_daq::processFrame(packet, &base);
            const auto expected =
                decoder_reference::decode(odt, stamped, packet, 1000 * second + 5, time);
            const auto written = host().take_writes();
            ASSERT_EQ(written.size(), expected.size());
            for (std::size_t i = 0; i < written.size(); ++i) {
                const Measurement& m = odt[i];
                const double value = written[i].value;
                ASSERT_EQ(written[i].variable, m.name);
                ASSERT_EQ(written[i].sampleTime,
                          Time(time.nanoseconds / second, time.nanoseconds % second));
                ASSERT_EQ(written[i].asInteger, m.kind == host_double::integer);
                ASSERT_TRUE(value == expected[i] || (std::isnan(value) && std::isnan(expected[i])))
                    << value << " instead of " << expected[i] << " in " << m.name;
            }
        }
    }
}

// ---- sample time ----

timespec base{5000, 7};

using Step = std::pair<std::int64_t, Time>; // the result, and the sample time

Step step(std::uint32_t previous, Time sampleTime, std::uint32_t timestamp,
          timespec* first = &base) {
    timespec corrected{sampleTime.first, sampleTime.second};
    const auto result = calculate_rollover(timestamp, &previous, &corrected, first);
    EXPECT_EQ(previous, timestamp);
    return {result, {corrected.tv_sec, corrected.tv_nsec}};
}

TEST(Rollover, AdvancesByTheSlavesClockUnlessThePauseWasLong) {
    using Expected = std::pair<std::int64_t, std::optional<Time>>; // no time: the host's clock
    const std::tuple<const char*, Time, std::uint32_t, std::uint32_t, Time, Expected> cases[] = {
        {"the difference", {0, 0}, 50, 100, {9, 0}, {50, Time(9, 50)}},
        {"a wrap is one tick less", {0, 0}, 4294967040, 16, {9, 0}, {271, Time(9, 271)}},
        {"a wrap carries", {0, 0}, 1000, 500, {9, 0}, {294966795, Time(13, 294966795)}},
        {"no wrap", {0, 0}, 0, 2500000000, {9, 999999000}, {2500000000, Time(12, 499999000)}},
        {"up to a whole second", {0, 0}, 0, 1000, {9, 999999000}, {1000, Time(10, 0)}},
        {"exactly 3 s are no pause", {3, 0}, 1, 2, {9, 0}, {1, Time(9, 1)}},
        {"3 s and a little are none", {3, 99}, 1, 2, {9, 0}, {1, Time(9, 1)}},
        {"4 s are", {4, 0}, 1, 2, {9, 0}, {4000000000, {}}},
        {"rounded down to 4 s", {5, -800}, 1, 2, {9, 0}, {4999999200, {}}},
        {"4 s, all carried", {5, -800}, 1000, 500, {9, 0}, {294966795, Time(13, 294966795)}},
        {"4 s, 2 s of them carried", {4, 0}, 2000000000, 500, {9, 0}, {4000000000, {}}},
    };
    for (const auto& [what, pause, previous, timestamp, sampleTime, expected] : cases) {
        host().clock.tv_nsec = 900;
        step(1, {9, 0}, 1); // as if a packet had just been stamped
        host().clock.tv_sec += pause.first;
        host().clock.tv_nsec += pause.second;
        const Time clock(host().clock.tv_sec, host().clock.tv_nsec);
        EXPECT_EQ(step(previous, sampleTime, timestamp),
                  Step(expected.first, expected.second.value_or(clock)))
            << what;
    }
}

// Every test is a process of its own, so each of these is the first call.
using First = std::tuple<std::uint32_t, Time, timespec*, Time>;
class FirstCall : public testing::TestWithParam<First> {};

TEST_P(FirstCall, AloneMayStandForTheBase) {
    const auto [previous, sampleTime, first, expected] = GetParam();
    EXPECT_EQ(step(previous, sampleTime, 3000000009, first), Step(3000000009 - previous, expected));
    EXPECT_EQ(step(0, {0, 0}, 5), Step(5, {0, 5}));
    EXPECT_EQ(Time(base.tv_sec, base.tv_nsec), Time(5000, 7));
}

INSTANTIATE_TEST_SUITE_P(Of, FirstCall,
                         testing::Values(First(0, {0, 0}, &base, {5000, 7}),
                                         First(0, {0, 0}, nullptr, {3, 9}), // without a base
                                         First(9, {0, 0}, &base, {3, 0}),   // from an earlier one
                                         First(0, {9, 0}, &base, {12, 9}),  // from a sample time
                                         First(0, {0, 1}, &base, {3, 10})));

} // namespace
