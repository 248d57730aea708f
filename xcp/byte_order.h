#pragma once
// Numbers out of unaligned packet bytes, and the reversal for slaves that send the most significant
// byte first.

#include <bit>
#include <cstdint>
#include <cstring>

namespace xcp {

static_assert(std::endian::native == std::endian::little,
              "values and headers are read as the host's own little-endian numbers");

template <class Unsigned>
inline Unsigned load_little_endian(const std::uint8_t* bytes) {
    Unsigned value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

inline std::uint8_t reverse_bytes(std::uint8_t value) {
    return value;
}
inline std::uint16_t reverse_bytes(std::uint16_t value) {
    return __builtin_bswap16(value);
}
inline std::uint32_t reverse_bytes(std::uint32_t value) {
    return __builtin_bswap32(value);
}
// Each 32-bit half by itself: the slave sends 64 bits as two words, the less significant one first.
inline std::uint64_t reverse_bytes(std::uint64_t value) {
    return std::rotl(__builtin_bswap64(value), 32);
}

// Calls `use` with a number of the unsigned type that has so many bytes. False, without a call, for
// a size that no number has.
template <class Use>
inline bool with_unsigned_of(int size, Use&& use) {
    switch (size) {
    case 1:
        use(std::uint8_t{});
        return true;
    case 2:
        use(std::uint16_t{});
        return true;
    case 4:
        use(std::uint32_t{});
        return true;
    case 8:
        use(std::uint64_t{});
        return true;
    default:
        return false;
    }
}

} // namespace xcp
