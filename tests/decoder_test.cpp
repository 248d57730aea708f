// One DAQ packet into host variables.

#include "api_xcp_daq.h"
#include "decoder_reference.h"
#include "host_double.h"
#include "table.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

using decoder_reference::Measurement;
using host_double::host;
using table::add_plain;
using table::Bytes;
using table::decode;

namespace {

std::vector<double> values() {
    std::vector<double> result;
    for (const auto& write : host().writes())
        result.push_back(write.value);
    return result;
}

// Decodes `packet` and gives what went to standard output.
std::string output_of(const Bytes& packet) {
    testing::internal::CaptureStdout();
    decode(packet);
    return testing::internal::GetCapturedStdout();
}

class Decoder : public testing::Test {
  protected:
    api_xcp_daq object;

    Decoder() {
        for (const char* name : {"a", "b", "c"})
            host().define(name, host_double::real);
    }
};

TEST_F(Decoder, ATimestampShiftsTheEntriesWhenModeAndLengthSayso) {
    add_plain("a", 0, 3, 0, 2, MODE_TIMESTAMP);
    add_plain("b", 0, 3, 1, 4, MODE_TIMESTAMP);
    decode({3, 0, 1, 2, 3, 0, 0, 0});
    EXPECT_EQ(values(), (std::vector<double>{0x0201, 3}));
    EXPECT_EQ(host().writes()[0].sampleTime.tv_sec, 0) << "no timestamp has been seen yet";
    host().forget_writes();

    decode({3, 0, 0x10, 0, 0, 0, 1, 2, 3, 0, 0, 0}, {1000, 5});
    EXPECT_EQ(values(), (std::vector<double>{0x0201, 3}));
    EXPECT_EQ(host().writes()[0].sampleTime.tv_sec, 1000);
    host().forget_writes();

    decode({3, 0, 0x20, 0, 0, 0, 1, 2, 3, 0, 0, 0, 0}, {1000, 5});
    EXPECT_EQ(values(), (std::vector<double>{0x20, 0x02010000})) << "one byte more: no timestamp";
    EXPECT_EQ(host().writes()[0].sampleTime.tv_nsec, 5);
    host().forget_writes();

    decode({3, 0, 0x20, 0, 0, 0, 1, 2, 3, 0, 0, 0}, {1000, 5});
    EXPECT_EQ(host().writes()[0].sampleTime.tv_nsec, 5 + 0x10);
    host().forget_writes();

    add_plain("a", 0, 4, 0, 2);
    add_plain("b", 0, 4, 1, 4, MODE_TIMESTAMP);
    decode({4, 0, 0x10, 0, 0, 0, 1, 2, 3, 0, 0, 0}, {1000, 5});
    EXPECT_EQ(values(), (std::vector<double>{0x10, 0x02010000})) << "entry 0 has the mode";
}

TEST_F(Decoder, TellsOfListsAndOdtsThatItDoesNotKnow) {
    EXPECT_EQ(output_of({0, 4}), "Received Invalid buffer or out of range daqNum = 4\n");
    EXPECT_EQ(output_of({9, 2, 0}), "buffer.size = 3 Unable daqNum= 2 OdtEntryIndex= 9 to find "
                                    "entry in using odt 9 -1\n");
    add_plain("a", 0, 9, 0, 1);
    add_plain("a", 0, 9, 0, 1);
    EXPECT_EQ(output_of({9, 0, 0}), "buffer.size = 3 Unable daqNum= 0 OdtEntryIndex= 9 to find "
                                    "entry in using odt 9 1\n")
        << "an entry added twice counts twice";
    EXPECT_EQ(output_of({}) + output_of({0}), "");
    EXPECT_TRUE(values().empty());
}

TEST_F(Decoder, OddSizesAreToldAndPassedOver) {
    add_plain("a", 0, 0, 0, 3);
    add_plain("b", 0, 0, 1, 0);
    add_plain("none", 0, 0, 2, 5);
    add_plain("c", 0, 0, 3, 1);
    EXPECT_EQ(output_of({0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 99}),
              " Invalid odt entry size 3\n Invalid odt entry size 0\n")
        << "an unbound entry is passed over before its size is looked at";
    EXPECT_EQ(values(), std::vector<double>{99});
}

TEST_F(Decoder, AGapEndsThePacketInSilence) {
    add_plain("a", 0, 0, 0, 1);
    add_plain("b", 0, 0, 2, 1);
    add_plain("c", 0, 0, 2, 1); // three calls: the last index is 2
    EXPECT_EQ(output_of({0, 0, 5, 6, 7}), "");
    EXPECT_EQ(values(), std::vector<double>{5});

    add_plain("a", 1, 0, 1, 1); // no entry 0
    add_plain("b", 1, 0, 1, 1);
    EXPECT_EQ(output_of({0, 1, 5, 6, 7}), "");
    EXPECT_EQ(values().size(), 1U);
}

// Watched by the address sanitizer.
TEST_F(Decoder, NegativeSizesLeadNowhereOutsideThePacket) {
    add_plain("a", 0, 0, 0, -1, MODE_TIMESTAMP); // 5 bytes would be its stamped length
    add_plain("b", 0, 1, 0, -5);
    add_plain("c", 0, 1, 1, 4); // at byte -3
    EXPECT_EQ(output_of({0, 0, 1, 2, 3}), " Invalid odt entry size -1\n");
    EXPECT_EQ(output_of({1, 0, 1, 2, 3}), " Invalid odt entry size -5\n");
    EXPECT_TRUE(values().empty());
}

// ---- byte order ----

std::pair<int, Bytes> swapped(int size, int byteOrder) {
    Bytes bytes = {1, 2, 3, 4, 5, 6, 7, 8};
    const int result = swap_bytes_endiness(size, byteOrder, bytes.data());
    return {result, bytes};
}

TEST(SwapBytes, ReversesTwoFourAndEachHalfOfEight) {
    EXPECT_EQ(swapped(2, 0), std::pair(1, Bytes({2, 1, 3, 4, 5, 6, 7, 8})));
    EXPECT_EQ(swapped(4, 0), std::pair(1, Bytes({4, 3, 2, 1, 5, 6, 7, 8})));
    EXPECT_EQ(swapped(8, 0), std::pair(1, Bytes({4, 3, 2, 1, 8, 7, 6, 5})));
}

TEST(SwapBytes, LeavesEverythingElseAlone) {
    for (const int size : {-8, 0, 1, 3, 5, 16})
        EXPECT_EQ(swapped(size, 0), std::pair(0, Bytes({1, 2, 3, 4, 5, 6, 7, 8}))) << size;
    for (const int order : {1, -1, 256})
        EXPECT_EQ(swapped(4, order), std::pair(0, Bytes({1, 2, 3, 4, 5, 6, 7, 8}))) << order;
}

// ---- against the reference ----

class RandomOdts {
  public:
    std::mt19937_64 random{20261122};

    template <class T>
    T one_of(const std::vector<T>& choices) {
        return choices[random() % choices.size()];
    }

    double number() {
        static const std::vector<double> special = {0.0,
                                                    1.0,
                                                    -1.0,
                                                    0.5,
                                                    -0.1,
                                                    255.0,
                                                    256.0,
                                                    65535.5,
                                                    4294967295.0,
                                                    -4294967296.0,
                                                    2147483648.0,
                                                    9223372036854775808.0,
                                                    -9223372036854775808.0,
                                                    18446744073709551616.0,
                                                    1e300,
                                                    -1e300,
                                                    std::numeric_limits<double>::infinity(),
                                                    -std::numeric_limits<double>::infinity(),
                                                    std::numeric_limits<double>::quiet_NaN()};
        if (random() % 3 == 0)
            return one_of(special);
        return std::ldexp(std::uniform_real_distribution(-1.0, 1.0)(random),
                          static_cast<int>(random() % 72));
    }

    Bytes bytes(std::size_t size) {
        Bytes result(size);
        for (auto& byte : result)
            byte = static_cast<std::uint8_t>(random());
        return result;
    }

    std::vector<Measurement> odt(int number_) {
        std::vector<Measurement> entries(1 + random() % 6);
        for (std::size_t i = 0; i < entries.size(); ++i) {
            const bool integer = random() % 2 == 0;
            entries[i] = {std::to_string(number_) + "_" + std::to_string(i),
                          integer,
                          one_of<int>({1, 2, 4, 8}),
                          one_of<int>({0, 1, -3}),
                          number(),
                          number(),
                          number(),
                          number()};
        }
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

bool same(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

TEST(DecoderAgainstReference, RandomTablesAndPacketsOfEveryLength) {
    const api_xcp_daq object;
    RandomOdts random;
    int stamped = 0;
    for (int number = 0; number < 190; ++number) {
        const auto odt = random.odt(number);
        const int daq = number % 4;
        const std::uint8_t mode = number % 2 == 0 ? MODE_TIMESTAMP : 0;
        add(odt, daq, number, mode);
        const auto full = static_cast<std::size_t>(
            appData.daqList[static_cast<std::size_t>(daq)].odtTableInfo.at(number).odtLength);
        for (std::size_t length = 2; length <= full + 5; ++length) {
            Bytes packet = random.bytes(length);
            packet[0] = static_cast<std::uint8_t>(number);
            packet[1] = static_cast<std::uint8_t>(daq);
            host().forget_writes();
            decode(packet, {1, 0});
            const auto expected = decoder_reference::decode(odt, mode != 0, packet);
            const auto written = host().writes();
            stamped += expected.timestamp ? 1 : 0;
            ASSERT_EQ(written.size(), expected.values.size());
            for (std::size_t i = 0; i < written.size(); ++i) {
                const Measurement& m = odt[i];
                ASSERT_EQ(written[i].variable, expected.values[i].name);
                ASSERT_EQ(written[i].asInteger, m.integer);
                ASSERT_TRUE(same(written[i].value, expected.values[i].value))
                    << written[i].value << " instead of " << expected.values[i].value << ", size "
                    << m.size << " order " << m.byteOrder << " * " << m.factor << " + " << m.offset
                    << " in " << m.lower << " .. " << m.upper;
            }
        }
    }
    EXPECT_EQ(stamped, 95);
}

} // namespace
