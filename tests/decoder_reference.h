#pragma once
// A second decoder, written straight from the arithmetic and without the library's tables: the
// judge of the real one over random input. It knows contiguous ODTs only.

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace decoder_reference {

struct Measurement {
    std::string name;
    bool integer;
    int size;
    int byteOrder;
    double factor, offset, lower, upper;
};

struct Result {
    bool stamped;
    std::vector<double> values; // in the order of the entries
};

__extension__ using Wide = __int128;

inline Wide modulo(Wide value, int bits) {
    const Wide beyond = Wide{1} << bits;
    return (value % beyond + beyond) % beyond;
}

inline double as_signed32(Wide value) {
    const Wide half = Wide{1} << 31;
    return static_cast<double>(modulo(value + half, 32) - half);
}

// The lowest number of so many bits for everything that does not fit.
inline Wide truncate(double x, int bits) {
    const double beyond = std::ldexp(1.0, bits - 1);
    const double whole = std::trunc(x);
    return static_cast<Wide>(whole >= -beyond && whole < beyond ? whole : -beyond);
}

inline Wide truncate_unsigned(double x) {
    const double whole = std::trunc(x);
    if (whole >= 0)
        return whole < std::ldexp(1.0, 64) ? static_cast<Wide>(whole) : 0;
    return modulo(truncate(x, 64), 64);
}

inline double limit(double x, const Measurement& m) {
    return x > m.upper ? m.upper : x < m.lower ? m.lower : x;
}

inline double linear(Wide raw, const Measurement& m) {
    return static_cast<double>(static_cast<std::uint64_t>(raw)) * m.factor + m.offset;
}

inline double integer_value(Wide raw, const Measurement& m) {
    if (m.size == 1) {
        const Wide value = modulo(truncate(linear(raw, m), 32), 8);
        return as_signed32(truncate(limit(static_cast<double>(value), m), 64));
    }
    if (m.size == 2) {
        const Wide product = modulo(truncate(static_cast<double>(raw) * m.factor, 32), 16);
        const Wide sum = modulo(truncate(static_cast<double>(product) + m.offset, 64), 32);
        return static_cast<double>(modulo(truncate(limit(static_cast<double>(sum), m), 32), 16));
    }
    if (m.size == 4) {
        const Wide value = modulo(truncate(linear(raw, m), 64), 32);
        return as_signed32(truncate(limit(static_cast<double>(value), m), 64));
    }
    const Wide value = truncate_unsigned(linear(raw, m));
    const Wide upper = truncate_unsigned(m.upper);
    const Wide lower = truncate_unsigned(m.lower);
    return as_signed32(value > upper ? upper : value < lower ? lower : value);
}

inline Wide raw_value(const std::uint8_t* bytes, int size, int byteOrder) {
    Wide raw = 0;
    for (int i = 0; i < size; ++i) {
        const int reversed = size == 8 ? i / 4 * 4 + 3 - i % 4 : size - 1 - i;
        raw += Wide{bytes[byteOrder == 0 ? reversed : i]} << (8 * i);
    }
    return raw;
}

inline Result decode(const std::vector<Measurement>& odt, bool timestamped,
                     const std::vector<std::uint8_t>& packet) {
    std::size_t laidOut = 2;
    for (const Measurement& m : odt)
        laidOut += static_cast<std::size_t>(m.size);
    Result result{timestamped && packet.size() == laidOut + 4, {}};
    std::size_t at = result.stamped ? 6 : 2;
    for (const Measurement& m : odt) {
        const std::size_t end = at + static_cast<std::size_t>(m.size);
        if (end > packet.size())
            break;
        const Wide raw = raw_value(&packet[at], m.size, m.byteOrder);
        result.values.push_back(m.integer ? integer_value(raw, m) : limit(linear(raw, m), m));
        at = end;
    }
    return result;
}

} // namespace decoder_reference
