#pragma once
// From a raw number to a converted one: truncation with a fixed result for every double, clamping,
// linear conversion. Pure functions; the results are part of the library's contract, so they are
// spelled out instead of left to what a processor does out of range.

#include <algorithm>
#include <cstdint>
#include <limits>

namespace xcp_daq {

constexpr double two_to_63 = 9223372036854775808.0;

// For any processor. NaN fails every comparison and so ends at the minimum, as do all values out of
// range.
namespace portable {

inline std::int32_t trunc_i32(double x) {
    return x > -2147483649.0 && x < 2147483648.0 ? static_cast<std::int32_t>(x)
                                                 : std::numeric_limits<std::int32_t>::min();
}

inline std::int64_t trunc_i64(double x) {
    return x >= -two_to_63 && x < two_to_63 ? static_cast<std::int64_t>(x)
                                            : std::numeric_limits<std::int64_t>::min();
}

} // namespace portable

// The same: these processors' instruction gives the minimum for NaN and for what does not fit. Not
// by its intrinsic, which g++ 12 computes for a constant with another result.
#if defined(__x86_64__)
inline std::int32_t trunc_i32(double x) {
    std::int32_t result;
    asm("cvttsd2si %1, %0" : "=r"(result) : "x"(x));
    return result;
}
inline std::int64_t trunc_i64(double x) {
    std::int64_t result;
    asm("cvttsd2si %1, %0" : "=r"(result) : "x"(x));
    return result;
}
#else
using portable::trunc_i32;
using portable::trunc_i64;
#endif

// Negative values wrap modulo 2^64; 2^64 and above give 0.
inline std::uint64_t trunc_u64(double x) {
    constexpr std::uint64_t topBit = std::uint64_t{1} << 63;
    if (x >= two_to_63)
        return static_cast<std::uint64_t>(trunc_i64(x - two_to_63)) ^ topBit;
    return static_cast<std::uint64_t>(trunc_i64(x));
}

// The upper limit comes first, which shows when the limits are crossed.
inline double check_bounds(double value, double upper, double lower) {
    if (value > upper)
        return upper;
    if (lower > value)
        return lower;
    return value;
}

inline std::uint64_t check_long_bounds(std::uint64_t value, double upper, double lower) {
    if (value > trunc_u64(upper))
        return trunc_u64(upper);
    return std::max(value, trunc_u64(lower));
}

struct Conversion {
    double factor;
    double offset;
    double lower;
    double upper;
};

template <class Unsigned>
inline double convert_to_real(Unsigned raw, const Conversion& c) {
    return check_bounds(static_cast<double>(raw) * c.factor + c.offset, c.upper, c.lower);
}

// Integer results: where the value is cut to the width of the raw value differs from size to size.
inline std::int32_t convert_to_integer(std::uint8_t raw, const Conversion& c) {
    const auto cut = static_cast<std::uint8_t>(trunc_i32(raw * c.factor + c.offset));
    return static_cast<std::int32_t>(trunc_i64(check_bounds(cut, c.upper, c.lower)));
}

inline std::int32_t convert_to_integer(std::uint16_t raw, const Conversion& c) {
    const auto product = static_cast<std::uint16_t>(trunc_i32(raw * c.factor));
    const auto sum = static_cast<std::uint32_t>(trunc_i64(product + c.offset));
    return static_cast<std::uint16_t>(trunc_i32(check_bounds(sum, c.upper, c.lower)));
}

// Clamped as an unsigned number: a negative result lies above any ordinary upper limit.
inline std::int32_t convert_to_integer(std::uint32_t raw, const Conversion& c) {
    const auto value = static_cast<std::uint32_t>(trunc_i64(raw * c.factor + c.offset));
    return static_cast<std::int32_t>(trunc_i64(check_bounds(value, c.upper, c.lower)));
}

inline std::int32_t convert_to_integer(std::uint64_t raw, const Conversion& c) {
    const std::uint64_t value = trunc_u64(static_cast<double>(raw) * c.factor + c.offset);
    return static_cast<std::int32_t>(check_long_bounds(value, c.upper, c.lower));
}

} // namespace xcp_daq
