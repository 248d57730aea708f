// Truncation and clamping at their limits, which the low 32 bits that reach a variable rarely show.

#include "xcp_daq/value_conversion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace xcp_daq;

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr std::uint64_t top_bit = std::uint64_t{1} << 63;

TEST(Truncation, GivesTheLowestNumberForWhatDoesNotFit) {
    constexpr auto lowest32 = std::numeric_limits<std::int32_t>::min();
    constexpr auto lowest64 = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(trunc_i32(-2.9), -2);
    EXPECT_EQ(trunc_i32(2147483647.9), 2147483647);
    EXPECT_EQ(trunc_i32(-2147483648.9), lowest32);
    for (const double x : {2147483648.0, 3.0e9, -2147483649.0, infinity, -infinity, nan})
        EXPECT_EQ(trunc_i32(x), lowest32) << x;
    EXPECT_EQ(trunc_i64(-2.9), -2);
    EXPECT_EQ(trunc_i64(std::nextafter(two_to_63, 0.0)), 9223372036854774784);
    for (const double x : {two_to_63, -two_to_63, -1e19, infinity, nan})
        EXPECT_EQ(trunc_i64(x), lowest64) << x;
}

TEST(Truncation, OfUnsignedNumbersWraps) {
    EXPECT_EQ(trunc_u64(1.0e19), 10000000000000000000U);
    EXPECT_EQ(trunc_u64(two_to_63), top_bit);
    EXPECT_EQ(trunc_u64(2 * two_to_63), 0U);
    EXPECT_EQ(trunc_u64(infinity), 0U);
    EXPECT_EQ(trunc_u64(-1.5), 0xFFFFFFFFFFFFFFFFU);
    EXPECT_EQ(trunc_u64(-0.5), 0U);
    for (const double x : {-two_to_63, -1e30, nan})
        EXPECT_EQ(trunc_u64(x), top_bit) << x;
}

TEST(Clamping, UpperLimitComesFirst) {
    EXPECT_EQ(check_bounds(5, 3, 10), 3);
    EXPECT_EQ(check_bounds(-1, 100, 0), 0);
    EXPECT_TRUE(std::isnan(check_bounds(nan, 1, 0)));
    EXPECT_EQ(check_bounds(7, nan, nan), 7);
    EXPECT_EQ(check_long_bounds(5, 1000.0, -100.0), 0xFFFFFFFFFFFFFF9CU);
    EXPECT_EQ(check_long_bounds(top_bit + 10, 1.8446744073709552e19, 0.0), 0U);
    EXPECT_EQ(check_long_bounds(2000, 1000.0, 1500.0), 1000U);
    EXPECT_EQ(check_long_bounds(5, 1000.0, 1500.0), 1500U);
}

} // namespace
