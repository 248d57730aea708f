#include "raw_form.h"

#include <algorithm>
#include <bit>
#include <iterator>

namespace halmor_standin {

namespace {

static_assert(std::endian::native == std::endian::little && std::numeric_limits<float>::is_iec559 &&
                  std::numeric_limits<double>::is_iec559,
              "numbers are taken from their bytes as this machine's own");

template <class Integer>
double integer(std::uint64_t bits, int shift) {
    return static_cast<double>(static_cast<Integer>(bits) >> shift);
}

// The fields of a half, moved to where a float has them, are a number whose exponent is 112 too
// small; this holds below the normal numbers as well. Infinity and NaN have an exponent of ones.
double half(std::uint64_t bits, int) {
    constexpr std::uint32_t float_exponent = 0x7F800000;
    const std::uint32_t fields = static_cast<std::uint32_t>(bits & 0x7FFF) << 13;
    const bool finite = (bits & 0x7C00) != 0x7C00;
    const float size = finite ? std::bit_cast<float>(fields) * 0x1p112F
                              : std::bit_cast<float>(fields | float_exponent);
    return (bits & 0x8000) == 0 ? size : -size;
}

double single_precision(std::uint64_t bits, int) {
    return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
}

double double_precision(std::uint64_t bits, int) {
    return std::bit_cast<double>(bits);
}

enum class Kind { unsigned_integer, signed_integer, real };

} // namespace

// What differs from type to type, one function for each: an indirect call per value.
struct RawTypes {
    struct Row {
        const char* word;
        std::size_t size; // bytes
        Kind kind;
        RawConversion::Convert convert;
    };
    static const Row rows[];

    // What identical conversions leave out would make 0 of -0. NaN is within any limits.
    template <double (*read)(std::uint64_t bits, int shift)>
    static double convert(const RawConversion& c, std::uint64_t bytes) {
        const std::uint64_t bits = c.form_.msbFirst ? __builtin_bswap64(bytes) >> c.unused_ : bytes;
        double value = read(bits & c.mask_, c.shift_);
        if (!c.identical_)
            value = value * c.form_.factor + c.form_.offset;
        value = c.form_.upper < value ? c.form_.upper : value;
        return value < c.form_.lower ? c.form_.lower : value;
    }
};

// In the order of RawType.
constexpr RawTypes::Row RawTypes::rows[] = {
    {"UBYTE", 1, Kind::unsigned_integer, convert<integer<std::uint8_t>>},
    {"SBYTE", 1, Kind::signed_integer, convert<integer<std::int8_t>>},
    {"UWORD", 2, Kind::unsigned_integer, convert<integer<std::uint16_t>>},
    {"SWORD", 2, Kind::signed_integer, convert<integer<std::int16_t>>},
    {"ULONG", 4, Kind::unsigned_integer, convert<integer<std::uint32_t>>},
    {"SLONG", 4, Kind::signed_integer, convert<integer<std::int32_t>>},
    {"A_UINT64", 8, Kind::unsigned_integer, convert<integer<std::uint64_t>>},
    {"A_INT64", 8, Kind::signed_integer, convert<integer<std::int64_t>>},
    {"FLOAT16_IEEE", 2, Kind::real, convert<half>},
    {"FLOAT32_IEEE", 4, Kind::real, convert<single_precision>},
    {"FLOAT64_IEEE", 8, Kind::real, convert<double_precision>},
};

namespace {

const RawTypes::Row& row_of(RawType type) {
    return RawTypes::rows[static_cast<std::size_t>(type)];
}

} // namespace

const char* name_of(RawType type) {
    return row_of(type).word;
}

std::size_t size_of(RawType type) {
    return row_of(type).size;
}

bool is_signed(RawType type) {
    return row_of(type).kind == Kind::signed_integer;
}

bool is_real(RawType type) {
    return row_of(type).kind == Kind::real;
}

std::optional<RawType> raw_type_named(std::string_view word) {
    const auto& rows = RawTypes::rows;
    const auto found = std::find_if(std::begin(rows), std::end(rows),
                                    [&](const auto& row) { return row.word == word; });
    if (found == std::end(rows))
        return {};
    return static_cast<RawType>(found - std::begin(rows));
}

RawConversion::RawConversion(const RawForm& form)
    : convert_(row_of(form.number.type).convert), words_(size_of(form.number.type) == 8 ? 2 : 1),
      unused_(64 - 8 * static_cast<int>(size_of(form.number.type))),
      identical_(form.factor == 1.0 && form.offset == 0.0), form_(form) {
    if (is_real(form.number.type))
        return;
    mask_ = form.number.bitMask & every_bit >> unused_;
    shift_ = mask_ == 0 ? 0 : std::countr_zero(mask_);
}

} // namespace halmor_standin
