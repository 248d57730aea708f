// Byte order, truncation and clamping at their limits.

#include "api_xcp_daq.h"
#include "value_conversion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace xcp_daq;

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

using Bytes = std::vector<std::uint8_t>;

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

TEST(SwapBytes, WorksOnUnalignedData) {
    Bytes bytes = {0, 1, 2, 3, 4};
    EXPECT_EQ(swap_bytes_endiness(4, 0, &bytes[1]), 1);
    EXPECT_EQ(bytes, Bytes({0, 4, 3, 2, 1}));
}

TEST(Truncation, To32Bits) {
    constexpr auto lowest = std::numeric_limits<std::int32_t>::min();
    EXPECT_EQ(trunc_i32(-2.9), -2);
    EXPECT_EQ(trunc_i32(2147483647.9), 2147483647);
    EXPECT_EQ(trunc_i32(-2147483648.9), lowest);
    for (const double x : {2147483648.0, 3.0e9, -2147483649.0, infinity, -infinity, nan})
        EXPECT_EQ(trunc_i32(x), lowest) << x;
}

TEST(Truncation, To64Bits) {
    constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(trunc_i64(-2.9), -2);
    EXPECT_EQ(trunc_i64(std::nextafter(two_to_63, 0.0)), 9223372036854774784);
    EXPECT_EQ(trunc_i64(-two_to_63), lowest);
    for (const double x : {two_to_63, std::nextafter(-two_to_63, -infinity), infinity, nan})
        EXPECT_EQ(trunc_i64(x), lowest) << x;
}

TEST(Truncation, ToUnsigned64Bits) {
    constexpr std::uint64_t topBit = std::uint64_t{1} << 63;
    EXPECT_EQ(trunc_u64(1.0e19), 10000000000000000000U);
    EXPECT_EQ(trunc_u64(two_to_63), topBit);
    EXPECT_EQ(trunc_u64(std::nextafter(2 * two_to_63, 0.0)), 18446744073709549568U);
    EXPECT_EQ(trunc_u64(2 * two_to_63), 0U);
    EXPECT_EQ(trunc_u64(infinity), 0U);
    EXPECT_EQ(trunc_u64(-1.5), 0xFFFFFFFFFFFFFFFFU);
    EXPECT_EQ(trunc_u64(-0.5), 0U);
    EXPECT_EQ(trunc_u64(-two_to_63), topBit);
    EXPECT_EQ(trunc_u64(-1e30), topBit);
    EXPECT_EQ(trunc_u64(nan), topBit);
}

TEST(Clamping, UpperLimitComesFirst) {
    EXPECT_EQ(check_bounds(5, 3, 10), 3);
    EXPECT_EQ(check_bounds(2, 3, 10), 10);
    EXPECT_EQ(check_bounds(-1, 100, 0), 0);
    EXPECT_TRUE(std::isnan(check_bounds(nan, 1, 0)));
    EXPECT_EQ(check_bounds(7, nan, nan), 7);

    constexpr std::uint64_t topBit = std::uint64_t{1} << 63;
    EXPECT_EQ(check_long_bounds(5, 1000.0, -100.0), 0xFFFFFFFFFFFFFF9CU);
    EXPECT_EQ(check_long_bounds(topBit + 10, 1.8446744073709552e19, 0.0), 0U);
    EXPECT_EQ(check_long_bounds(2000, 1000.0, 1500.0), 1000U);
    EXPECT_EQ(check_long_bounds(5, 1000.0, 1500.0), 1500U);
}

} // namespace
