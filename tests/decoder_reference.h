#pragma once
// A second decoder, written straight from the arithmetic and without the library's tables: the
// judge of the real one over random input. It knows contiguous ODTs only.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

namespace decoder_reference {

struct Measurement {
    std::string name;
    std::uint16_t kind; // 2: integer
    int size, byteOrder;
    double factor, offset, lower, upper;
};

__extension__ using Wide = __int128;

inline Wide modulo(Wide value, int bits) {
    const Wide beyond = Wide{1} << bits;
    return (value % beyond + beyond) % beyond;
}

// The lowest number of so many bits for everything that does not fit.
inline Wide truncate(double x, int bits) {
    const double beyond = std::ldexp(1.0, bits - 1);
    const double whole = std::trunc(x);
    return static_cast<Wide>(whole >= -beyond && whole < beyond ? whole : -beyond);
}

inline Wide truncate_unsigned(double x) {
    if (x < 0 || std::isnan(x))
        return modulo(truncate(x, 64), 64);
    return x < std::ldexp(1.0, 64) ? static_cast<Wide>(x) : 0;
}

inline double limit(double x, const Measurement& m) {
    return x > m.upper ? m.upper : x < m.lower ? m.lower : x;
}

inline Wide integer_value(double raw, const Measurement& m) {
    const double linear = raw * m.factor + m.offset;
    if (m.size == 8) {
        const Wide value = truncate_unsigned(linear), upper = truncate_unsigned(m.upper);
        return value > upper ? upper : std::max(value, truncate_unsigned(m.lower));
    }
    if (m.size == 2) {
        const Wide product = modulo(truncate(raw * m.factor, 32), 16);
        const Wide sum = modulo(truncate(static_cast<double>(product) + m.offset, 64), 32);
        return modulo(truncate(limit(static_cast<double>(sum), m), 32), 16);
    }
    const Wide value = modulo(truncate(linear, m.size == 1 ? 32 : 64), 8 * m.size);
    return truncate(limit(static_cast<double>(value), m), 64);
}

inline std::uint64_t raw_value(const std::uint8_t* bytes, int size, int byteOrder) {
    std::uint64_t raw = 0;
    for (int i = 0; i < size; ++i) {
        const int reversed = size == 8 ? i / 4 * 4 + 3 - i % 4 : size - 1 - i;
        raw += std::uint64_t{bytes[byteOrder == 0 ? reversed : i]} << (8 * i);
    }
    return raw;
}

inline double value_of(const std::uint8_t* bytes, const Measurement& m) {
    const auto raw = static_cast<double>(raw_value(bytes, m.size, m.byteOrder));
    if (m.kind != 2)
        return limit(raw * m.factor + m.offset, m);
    const Wide half = Wide{1} << 31; // of the low 32 bits, signed
    return static_cast<double>(modulo(integer_value(raw, m) + half, 32) - half);
}

struct SampleTime {
    std::int64_t nanoseconds = 0; // 0 before the first timestamp, which stands for the base
    std::int64_t timestamp = 0;
};

// The values in the order of the entries.
inline std::vector<double> decode(const std::vector<Measurement>& odt, bool stamped,
                                  const std::vector<std::uint8_t>& packet, std::int64_t base,
                                  SampleTime& time) {
    std::ptrdiff_t at = 2, full = 2 + 4;
    for (const Measurement& m : odt)
        full += m.size;
    if (stamped && std::ssize(packet) == full) {
        const auto now = static_cast<std::int64_t>(raw_value(&packet[2], 4, 1));
        const std::int64_t ticks = now - time.timestamp + (now < time.timestamp ? 0xFFFFFFFF : 0);
        time = {time.nanoseconds == 0 ? base : time.nanoseconds + ticks, now};
        at += 4;
    }
    std::vector<double> values;
    for (auto m = odt.begin(); m != odt.end() && at + m->size <= std::ssize(packet);
         at += m++->size)
        values.push_back(value_of(packet.data() + at, *m));
    return values;
}

} // namespace decoder_reference
