#include "integer_conversion.h"

#include <fmt/format.h>

#include <cmath>

namespace task {

namespace {

// Whole numbers from `from` on and below `beyond`; both are exact as doubles, which the last number
// of the largest range is not.
struct Range {
    double from;
    double beyond;
    const char* text;

    // Of what is cut to a whole number; NaN is in no range.
    bool contains(double value) const {
        const double whole = std::trunc(value);
        return whole >= from && whole < beyond;
    }
};

constexpr Range unsigned_8{0.0, 0x1p8, "0 to 255"};
constexpr Range unsigned_16{0.0, 0x1p16, "0 to 65535"};
constexpr Range unsigned_32{0.0, 0x1p32, "0 to 4294967295"};
constexpr Range unsigned_64{0.0, 0x1p64, "0 to 18446744073709551615"};
constexpr Range signed_32{-0x1p31, 0x1p31, "-2147483648 to 2147483647"};
constexpr Range positive_32{0.0, 0x1p31, "0 to 2147483647"};

// What the rules keep, by the size of the raw value.
struct Rules {
    int size;
    Range product; // raw * factor, where it is cut before the offset is added
    Range value;   // raw * factor + offset
    Range limit;   // the limits themselves, where they become whole numbers
    Range result;  // the limited value
};
constexpr Range any{-HUGE_VAL, HUGE_VAL, ""};
constexpr Rules all_rules[] = {
    {1, any, unsigned_8, any, signed_32},
    {2, unsigned_16, unsigned_32, any, unsigned_16},
    {4, any, unsigned_32, any, signed_32},
    {8, any, unsigned_64, unsigned_64, positive_32},
};

bool is_whole(double value) {
    return std::trunc(value) == value;
}

double limited(double value, const ConversionLine& c) {
    if (value > c.upperLimit)
        return c.upperLimit;
    return value < c.lowerLimit ? c.lowerLimit : value;
}

std::string text_of(double value) {
    return is_whole(value) ? fmt::format("{:.0f}", value) : fmt::format("{}", value);
}

std::string leaves(const char* what, double first, double last, const Range& range) {
    if (range.beyond == any.beyond || (range.contains(first) && range.contains(last)))
        return "";
    return fmt::format("{} run from {} to {}, and {} is what stays exact", what,
                       text_of(std::fmin(first, last)), text_of(std::fmax(first, last)),
                       range.text);
}

} // namespace

// The conversion is linear, and limiting it keeps its direction: the ends tell of all between them.
std::string inexact_integer(int size, const ConversionLine& c) {
    for (const Rules& rules : all_rules) {
        if (rules.size != size)
            continue;
        const double lastProduct = (std::ldexp(1.0, 8 * size) - 1.0) * c.factor;
        const double first = c.offset; // of the raw value 0
        const double last = lastProduct + c.offset;
        for (const std::string& fault :
             {leaves("values of raw * factor", 0.0, lastProduct, rules.product),
              leaves("values of raw * factor + offset", first, last, rules.value),
              leaves("limits", c.lowerLimit, c.upperLimit, rules.limit),
              leaves("limited values", limited(first, c), limited(last, c), rules.result)})
            if (!fault.empty())
                return fault;
        if (c.lowerLimit > c.upperLimit)
            return fmt::format("the lower limit, {}, lies above the upper one", c.lowerLimit);
        if (rules.product.beyond != any.beyond && !is_whole(c.factor) && !is_whole(c.offset))
            return fmt::format("raw * factor is cut to a whole number before {} is added",
                               c.offset);
    }
    return "";
}

} // namespace task
