#include "signal_values.h"

#include "numbers.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

namespace simulated_slave {

namespace {

using a2l::DataType;
using a2l::Signal;

enum class Kind { unsigned_integer, signed_integer, real };

Kind kind_of(DataType type) {
    switch (type) {
    case DataType::ubyte:
    case DataType::uword:
    case DataType::ulong:
    case DataType::a_uint64:
        return Kind::unsigned_integer;
    case DataType::sbyte:
    case DataType::sword:
    case DataType::slong:
    case DataType::a_int64:
        return Kind::signed_integer;
    default:
        return Kind::real;
    }
}

// From -1 to 1. Signals of one frequency differ in their phase, so that one cannot pass for
// another.
double wave(std::size_t number, std::uint64_t time_ns) {
    const double hertz = 0.2 * static_cast<double>(1 + number % 5);
    const double turns = hertz * static_cast<double>(time_ns) * 1e-9;
    return std::sin(2 * std::numbers::pi * (turns + 0.618 * static_cast<double>(number)));
}

// A double holds 53 of 64 bits. A wave that is long near 0 uses the lower bytes as well.
double shaped(double level, std::size_t size) {
    return size == 8 ? std::copysign(std::pow(level, 8), level) : level;
}

// The greatest number of so many bits, in 64 bits the greatest that a double holds as well.
double greatest(std::size_t bits) {
    return std::ldexp(1, static_cast<int>(bits)) - (bits > 53 ? std::ldexp(1, 11) : 1);
}

std::uint64_t real_bits(double value, DataType type) {
    if (type == DataType::float64_ieee)
        return std::bit_cast<std::uint64_t>(value);
    if (type == DataType::float32_ieee)
        return std::bit_cast<std::uint32_t>(static_cast<float>(value));
    constexpr double greatest_half = 65504;
    constexpr double least_normal = 0x1p-14; // below it, and in 0, the exponent stays
    const double size = std::min(std::abs(value), greatest_half);
    const int exponent = std::ilogb(std::max(size, least_normal)) + 1;
    const auto mantissa = static_cast<int>(std::lround(std::ldexp(size, 11 - exponent)));
    const int bits = (value < 0 ? 0x8000 : 0) + ((exponent + 13) << 10) + mantissa;
    return static_cast<std::uint64_t>(bits);
}

double real_number(std::uint64_t bits, DataType type) {
    if (type == DataType::float64_ieee)
        return std::bit_cast<double>(bits);
    if (type == DataType::float32_ieee)
        return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
    const auto exponent = static_cast<int>(bits >> 10 & 31);
    const auto fraction = static_cast<double>(bits & 1023);
    double size =
        exponent == 0 ? std::ldexp(fraction, -24) : std::ldexp(1024 + fraction, exponent - 25);
    if (exponent == 31)
        size = fraction == 0 ? HUGE_VAL : std::nan("");
    return (bits & 0x8000) == 0 ? size : -size;
}

double real_between_limits(const Signal& signal, double level) {
    constexpr double plausible = 1e30; // limits beyond it say nothing
    double lower = (signal.lower - signal.offset) / signal.factor;
    double upper = (signal.upper - signal.offset) / signal.factor;
    if (!(std::abs(lower) < plausible && std::abs(upper) < plausible) || lower == upper) {
        lower = -1000;
        upper = 1000;
    }
    return lower + (upper - lower) * (0.5 + 0.5 * level);
}

// What the mask leaves, its lowest bit as bit 0; the sign is the bits' top one.
double integer_number(std::uint64_t bits, std::uint64_t mask, std::size_t size, Kind kind) {
    const std::size_t unused = 64 - 8 * size;
    const auto number = static_cast<std::int64_t>((bits & mask) << unused) >> unused;
    std::size_t shift = 0;
    while (mask != 0 && shift < 8 * size - 1 && (mask >> shift & 1) == 0)
        ++shift;
    return kind == Kind::signed_integer ? static_cast<double>(number >> shift)
                                        : static_cast<double>((bits & mask) >> shift);
}

} // namespace

xcp::ByteOrder order_of(a2l::ByteOrder order) {
    return order == a2l::ByteOrder::big ? xcp::ByteOrder::big : xcp::ByteOrder::little;
}

std::uint64_t raw_value(const Signal& signal, std::size_t number, std::uint64_t time_ns) {
    const std::size_t size = a2l::size_of(signal.type);
    const double level = wave(number, time_ns);
    switch (kind_of(signal.type)) {
    case Kind::unsigned_integer:
        return static_cast<std::uint64_t>(shaped(0.5 + 0.5 * level, size) * greatest(8 * size));
    case Kind::signed_integer:
        return static_cast<std::uint64_t>(
            static_cast<std::int64_t>(shaped(level, size) * greatest(8 * size - 1)));
    default:
        return real_bits(real_between_limits(signal, level), signal.type);
    }
}

double physical_value(const Signal& signal, std::span<const std::uint8_t> bytes) {
    const Kind kind = kind_of(signal.type);
    const std::uint64_t bits = number_of(bytes, order_of(signal.byteOrder));
    const double number =
        kind == Kind::real
            ? real_number(bits, signal.type)
            : integer_number(bits, signal.bitMask.value_or(~std::uint64_t{0}), bytes.size(), kind);
    return signal.factor * number + signal.offset;
}

} // namespace simulated_slave
