#include "decoder_reference.h"

#include <cmath>

namespace decoder_reference {

namespace {

__extension__ using Wide = __int128;

Wide power_of_two(int exponent) {
    return static_cast<Wide>(1) << exponent;
}

Wide modulo(Wide value, int bits) {
    const Wide rest = value % power_of_two(bits);
    return rest < 0 ? rest + power_of_two(bits) : rest;
}

Wide as_signed32(Wide value) {
    const Wide low = modulo(value, 32);
    return low >= power_of_two(31) ? low - power_of_two(32) : low;
}

bool between(double x, Wide lowest, Wide beyond) {
    const double whole = std::trunc(x);
    return whole >= static_cast<double>(lowest) && whole < static_cast<double>(beyond);
}

Wide truncate(double x, int bits) {
    const Wide lowest = -power_of_two(bits - 1);
    return between(x, lowest, -lowest) ? static_cast<Wide>(std::trunc(x)) : lowest;
}

Wide truncate_unsigned(double x) {
    if (between(x, 0, power_of_two(64)))
        return static_cast<Wide>(std::trunc(x));
    if (x >= 0)
        return 0;
    return between(x, -power_of_two(63), 0) ? modulo(static_cast<Wide>(std::trunc(x)), 64)
                                            : power_of_two(63);
}

double limit(double x, const Measurement& m) {
    return x > m.upper ? m.upper : x < m.lower ? m.lower : x;
}

// The product is rounded before the sum on every machine.
double linear(Wide raw, const Measurement& m) {
    const volatile double product = static_cast<double>(static_cast<std::uint64_t>(raw)) * m.factor;
    return product + m.offset;
}

double integer_value(Wide raw, const Measurement& m) {
    if (m.size == 1) {
        const Wide v = modulo(truncate(linear(raw, m), 32), 8);
        return static_cast<double>(as_signed32(truncate(limit(static_cast<double>(v), m), 64)));
    }
    if (m.size == 2) {
        const Wide t = modulo(truncate(static_cast<double>(raw) * m.factor, 32), 16);
        const Wide v = modulo(truncate(static_cast<double>(t) + m.offset, 64), 32);
        return static_cast<double>(modulo(truncate(limit(static_cast<double>(v), m), 32), 16));
    }
    if (m.size == 4) {
        const Wide v = modulo(truncate(linear(raw, m), 64), 32);
        return static_cast<double>(as_signed32(truncate(limit(static_cast<double>(v), m), 64)));
    }
    Wide u = truncate_unsigned(linear(raw, m));
    if (u > truncate_unsigned(m.upper))
        u = truncate_unsigned(m.upper);
    else if (u < truncate_unsigned(m.lower))
        u = truncate_unsigned(m.lower);
    return static_cast<double>(as_signed32(u));
}

Wide raw_value(const std::vector<std::uint8_t>& packet, std::size_t at, int size, int byteOrder) {
    Wide raw = 0;
    for (int i = 0; i < size; ++i) {
        int place = i;
        if (byteOrder == 0)
            place = size == 8 ? i / 4 * 4 + 3 - i % 4 : size - 1 - i;
        raw += static_cast<Wide>(packet[at + static_cast<std::size_t>(place)]) << (8 * i);
    }
    return raw;
}

} // namespace

Result decode(const std::vector<Measurement>& odt, bool timestamped,
              const std::vector<std::uint8_t>& packet) {
    std::size_t laidOut = 2;
    for (const Measurement& m : odt)
        laidOut += static_cast<std::size_t>(m.size);
    Result result;
    std::size_t at = 2;
    if (timestamped && packet.size() == laidOut + 4) {
        result.timestamp = static_cast<std::uint32_t>(raw_value(packet, 2, 4, 1));
        at = 6;
    }
    for (const Measurement& m : odt) {
        if (at + static_cast<std::size_t>(m.size) > packet.size())
            break;
        const Wide raw = raw_value(packet, at, m.size, m.byteOrder);
        result.values.push_back(
            {m.name, m.integer ? integer_value(raw, m) : limit(linear(raw, m), m)});
        at += static_cast<std::size_t>(m.size);
    }
    return result;
}

} // namespace decoder_reference
