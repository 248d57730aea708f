#pragma once
// Values that arrive as the bytes of a slave's memory, in words of at most 4 bytes, because the
// library's conversion does not carry their data type: what the bytes mean, and the value that they
// make. Pure functions.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

namespace halmor_standin {

// The data types of an A2L file (ASAM MCD-2 MC).
enum class RawType {
    ubyte,
    sbyte,
    uword,
    sword,
    ulong,
    slong,
    a_uint64,
    a_int64,
    float16_ieee,
    float32_ieee,
    float64_ieee
};

const char* name_of(RawType type); // its word in an A2L file
std::size_t size_of(RawType type); // bytes
bool is_signed(RawType type);      // an integer type with a sign
bool is_real(RawType type);        // a floating-point type

// The type of such a word, if any.
std::optional<RawType> raw_type_named(std::string_view word);

constexpr std::uint64_t every_bit = ~std::uint64_t{0};

// A number in memory. The mask takes bits out of an integer, which is then shifted right by the
// zeros at the mask's end; the sign of a signed one is the type's top bit. It means nothing to a
// floating-point number.
struct RawNumber {
    RawType type = RawType::ubyte;
    std::uint64_t bitMask = every_bit;
    bool operator==(const RawNumber&) const = default;
};

// The value is number * factor + offset, then limited.
struct RawForm {
    RawNumber number;
    bool msbFirst = false;
    double factor = 1.0;
    double offset = 0.0;
    double lower = -std::numeric_limits<double>::infinity();
    double upper = std::numeric_limits<double>::infinity();
    bool operator==(const RawForm&) const = default;
};

// A RawForm made ready to be used for every value.
class RawConversion {
  public:
    explicit RawConversion(const RawForm& form);

    const RawForm& form() const { return form_; }
    std::size_t words() const { return words_; } // that make a value: 1, or 2 of 4 bytes each

    // Of the bytes in the order of the slave's memory, the first one in the lowest bits. Without
    // factor and offset the number itself, to the last bit; NaN stays NaN.
    double value(std::uint64_t bytes) const { return convert_(*this, bytes); }

  private:
    friend struct RawTypes;
    using Convert = double (*)(const RawConversion& conversion, std::uint64_t bytes);

    Convert convert_; // of the type
    std::size_t words_;
    std::uint64_t mask_ = every_bit; // no wider than the type
    int shift_ = 0;
    int unused_; // bits of 64
    bool identical_;
    RawForm form_;
};

} // namespace halmor_standin
