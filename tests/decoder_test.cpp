// One DAQ packet into host variables.

#include "api_xcp_daq.h"
#include "decoder_reference.h"
#include "host_double.h"
#include "table.h"
#include "temporary_file.h"
#include "xcp_daq/value_conversion.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>

using decoder_reference::Measurement;
using host_double::host;
using host_double::Time;
using table::add_plain;
using table::Bytes;

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();
using xcp_daq::two_to_63;

class Decoder : public testing::Test {
  protected:
    api_xcp_daq object;
    Time sampleTime; // of the last value

    Decoder() {
        for (const char* name : {"a", "b", "c"})
            host().define(name, host_double::real);
    }

    std::vector<double> decode(const Bytes& packet) {
        timespec base{1000, 5};
        api_xcp_daq::processFrame(packet, &base);
        std::vector<double> values;
        for (const auto& write : host().take_writes()) {
            values.push_back(write.value);
            sampleTime = write.sampleTime;
        }
        return values;
    }
};

TEST_F(Decoder, ATimestampShiftsTheEntriesWhenModeAndLengthSaySo) {
    add_plain("a", 0, 3, 0, 2, 0x12);
    add_plain("b", 0, 3, 1, 4, 0x12);
    add_plain("a", 0, 4, 0, 2, 0xEF);
    add_plain("b", 0, 4, 1, 4, 0x10);
    struct Case {
        const char* what;
        Bytes packet;
        std::vector<double> values;
        Time sampleTime;
    };
    const Case cases[] = {
        {"none yet", {3, 0, 1, 2, 3, 0, 0, 0}, {0x0201, 3}, {0, 0}},
        {"the first is the base", {3, 0, 8, 0, 0, 0, 1, 2, 3, 0, 0, 0}, {0x0201, 3}, {1000, 5}},
        {"a byte more", {3, 0, 9, 0, 0, 0, 1, 2, 3, 0, 0, 0, 0}, {9, 0x02010000}, {1000, 5}},
        {"a later one", {3, 0, 10, 1, 0, 0, 1, 2, 3, 0, 0, 0}, {0x0201, 3}, {1000, 5 + 258}},
        {"entry 0 has the mode",
         {4, 0, 9, 0, 0, 0, 1, 2, 3, 0, 0, 0},
         {9, 0x02010000},
         {1000, 263}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(decode(c.packet), c.values) << c.what;
        EXPECT_EQ(sampleTime, c.sampleTime) << c.what;
    }
}

// The negative sizes are watched by the address sanitizer.
TEST_F(Decoder, WhatFitsNoEntryIsToldOrPassedOver) {
    struct Entry {
        const char* name;
        int odt, index, size;
    };
    const Entry entries[] = {
        {"a", 9, 0, 1},  {"a", 9, 0, 1}, // counts twice
        {"a", 0, 0, 3},  {"b", 0, 1, 0}, {"unbound", 0, 2, 5}, {"c", 0, 3, 1},
        {"a", 1, 0, 1},  {"b", 1, 2, 1}, {"c", 1, 2, 1}, // a gap
        {"a", 2, 1, 1},  {"b", 2, 1, 1},                 // no entry 0
        {"a", 5, 0, -1},                                 // 5 bytes if stamped
        {"b", 6, 0, -5}, {"c", 6, 1, 4},                 // at byte -3
    };
    for (const Entry& e : entries)
        add_plain(e.name, 0, e.odt, e.index, e.size, MODE_TIMESTAMP);
    struct Case {
        Bytes packet;
        std::string output;
        std::vector<double> values;
    };
    const Case cases[] = {
        {{}, "", {}},
        {{9}, "", {}},
        {{0, 4}, "Received Invalid buffer or out of range daqNum = 4\n", {}},
        {{9, 2, 0},
         "buffer.size = 3 Unable daqNum= 2 OdtEntryIndex= 9 to find entry in using odt 9 -1\n",
         {}},
        {{9, 0, 0},
         "buffer.size = 3 Unable daqNum= 0 OdtEntryIndex= 9 to find entry in using odt 9 1\n",
         {}},
        {{0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 99},
         " Invalid odt entry size 3\n Invalid odt entry size 0\n",
         {99}},
        {{1, 0, 5, 6, 7}, "", {5}},
        {{2, 0, 5, 6, 7}, "", {}},
        {{5, 0, 1, 2, 3}, " Invalid odt entry size -1\n", {}},
        {{6, 0, 1, 2, 3}, " Invalid odt entry size -5\n", {}},
    };
    for (const Case& c : cases) {
        std::vector<double> values;
        EXPECT_EQ(output_of([&] { values = decode(c.packet); }), c.output);
        EXPECT_EQ(values, c.values) << c.output;
    }
}

TEST(SwapBytes, ReversesTwoFourAndEachHalfOfEight) {
    const auto swapped = [](int size, int byteOrder, int expected) {
        Bytes bytes = {1, 2, 3, 4, 5, 6, 7, 8};
        EXPECT_EQ(swap_bytes_endiness(size, byteOrder, bytes.data()), expected) << size;
        return bytes;
    };
    EXPECT_EQ(swapped(2, 0, 1), Bytes({2, 1, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(swapped(4, 0, 1), Bytes({4, 3, 2, 1, 5, 6, 7, 8}));
    EXPECT_EQ(swapped(8, 0, 1), Bytes({4, 3, 2, 1, 8, 7, 6, 5}));
    for (const int size : {-8, 0, 1, 3, 5, 16})
        EXPECT_EQ(swapped(size, 0, 0), Bytes({1, 2, 3, 4, 5, 6, 7, 8}));
    for (const int order : {1, -1, 256})
        EXPECT_EQ(swapped(4, order, 0), Bytes({1, 2, 3, 4, 5, 6, 7, 8}));
}

// At the limits, which the low 32 bits that reach a variable rarely show.
TEST(ValueConversion, TruncatesAndClampsAsAgreed) {
    using namespace xcp_daq;
    constexpr auto low32 = std::numeric_limits<std::int32_t>::min();
    constexpr auto low64 = std::numeric_limits<std::int64_t>::min();
    constexpr auto top = std::uint64_t{1} << 63;
    struct Case {
        double x;
        std::int32_t i32;
        std::int64_t i64;
        std::uint64_t u64;
    };
    const Case cases[] = {
        {-0.5, 0, 0, 0},
        {-2.9, -2, -2, 0xFFFFFFFFFFFFFFFE},
        {2147483647.9, 2147483647, 2147483647, 2147483647},
        {2147483648.0, low32, 2147483648, 2147483648},
        {-2147483648.9, low32, -2147483648, 0xFFFFFFFF80000000},
        {-2147483649.0, low32, -2147483649, 0xFFFFFFFF7FFFFFFF},
        {9223372036854774784.0, low32, 9223372036854774784, 9223372036854774784},
        {two_to_63, low32, low64, top},
        {1e19, low32, low64, 10000000000000000000U},
        {2 * two_to_63, low32, low64, 0},
        {infinity, low32, low64, 0},
        {-two_to_63, low32, low64, top},
        {-1e19, low32, low64, top},
        {-infinity, low32, low64, top},
        {nan, low32, low64, top},
    };
    for (const Case& c : cases)
        EXPECT_EQ(std::tuple(trunc_i32(c.x), trunc_i64(c.x), trunc_u64(c.x)),
                  std::tuple(c.i32, c.i64, c.u64))
            << c.x;

    EXPECT_EQ(check_bounds(5, 3, 10), 3) << "the upper limit comes first";
    EXPECT_EQ(check_bounds(-1, 100, 0), 0);
    EXPECT_TRUE(std::isnan(check_bounds(nan, 1, 0)));
    EXPECT_EQ(check_bounds(7, nan, nan), 7);
    EXPECT_EQ(check_long_bounds(5, 1000.0, -100.0), 0xFFFFFFFFFFFFFF9CU);
    EXPECT_EQ(check_long_bounds(top + 10, 1.8446744073709552e19, 0.0), 0U);
    EXPECT_EQ(check_long_bounds(2000, 1000.0, 1500.0), 1000U);
    EXPECT_EQ(check_long_bounds(5, 1000.0, 1500.0), 1500U);
}

// ---- against the reference ----

class RandomOdts {
  public:
    std::mt19937_64 random{20261122};

    std::uint8_t byte() { return static_cast<std::uint8_t>(random()); }

    double number() {
        constexpr double special[] = {0.0,          1.0,           -1.0,         0.5,
                                      -0.1,         255.0,         256.0,        65535.5,
                                      4294967295.0, -4294967296.0, 2147483648.0, two_to_63,
                                      -two_to_63,   2 * two_to_63, 1e300,        -1e300,
                                      infinity,     -infinity,     nan};
        if (random() % 3 == 0)
            return special[random() % std::size(special)];
        return std::ldexp(std::uniform_real_distribution(-1.0, 1.0)(random),
                          static_cast<int>(random() % 72));
    }

    std::vector<Measurement> odt(const std::string& name) {
        constexpr int sizes[] = {1, 2, 4, 8};
        constexpr int orders[] = {0, 1, -3};
        std::vector<Measurement> entries(1 + random() % 6);
        for (Measurement& m : entries)
            m = {name + "_" + std::to_string(&m - entries.data()),
                 random() % 2 == 0,
                 sizes[random() % 4],
                 orders[random() % 3],
                 number(),
                 number(),
                 number(),
                 number()};
        return entries;
    }
};

void add(const std::vector<Measurement>& odt, int daq, int number, std::uint8_t mode) {
    int index = 0;
    for (const Measurement& m : odt) {
        host().define(m.name, m.integer ? host_double::integer : host_double::real);
        api_xcp_daq::addMeasurement(m.name, daq, number, index++, m.size, mode);
        api_xcp_daq::addComputeMethod(m.name, daq, 0, m.factor, m.offset, 0, m.byteOrder, m.lower,
                                      m.upper);
    }
}

TEST(DecoderAgainstReference, RandomTablesAndPacketsOfEveryLength) {
    const api_xcp_daq object;
    RandomOdts random;
    int stamped = 0;
    for (std::uint8_t number = 0; number < 190; ++number) {
        const auto odt = random.odt(std::to_string(number));
        const std::uint8_t daq = number % 4;
        const bool hasTimestamp = number % 2 == 0;
        const std::uint8_t others = random.byte() & static_cast<std::uint8_t>(~MODE_TIMESTAMP);
        add(odt, daq, number, hasTimestamp ? others | MODE_TIMESTAMP : others);
        const auto full =
            static_cast<std::size_t>(appData.daqList[daq].odtTableInfo.at(number).odtLength);
        for (std::size_t length = 2; length <= full + 5; ++length) {
            Bytes packet(length);
            std::generate(packet.begin(), packet.end(), [&] { return random.byte(); });
            packet[0] = number;
            packet[1] = daq;
            timespec base{1, 0};
            api_xcp_daq::processFrame(packet, &base);
            const auto expected = decoder_reference::decode(odt, hasTimestamp, packet);
            const auto written = host().take_writes();
            stamped += expected.stamped ? 1 : 0;
            ASSERT_EQ(written.size(), expected.values.size());
            for (std::size_t i = 0; i < written.size(); ++i) {
                const Measurement& m = odt[i];
                const double value = expected.values[i];
                ASSERT_EQ(written[i].variable, m.name);
                ASSERT_EQ(written[i].asInteger, m.integer);
                ASSERT_TRUE(written[i].value == value ||
                            (std::isnan(written[i].value) && std::isnan(value)))
                    << written[i].value << " instead of " << value << ", size " << m.size
                    << " order " << m.byteOrder << " * " << m.factor << " + " << m.offset << " in "
                    << m.lower << " .. " << m.upper;
            }
        }
    }
    EXPECT_EQ(stamped, 95);
}

} // namespace
