#pragma once
// What a token stands for: numbers and texts.

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace a2l {

// Decimal, with or without exponent, or hexadecimal. A number too large for a double is the largest
// one, since tools write the largest with too few digits. Empty for what is no number.
std::optional<double> to_real(std::string_view word);

// A whole number from 0 on, written in any of these ways.
std::optional<std::uint64_t> to_integer(std::string_view word);

// The nearest number that the type holds.
template <class Number>
Number saturated(std::uint64_t value) {
    constexpr Number most = std::numeric_limits<Number>::max();
    return value < most ? static_cast<Number>(value) : most;
}

// A string as UTF-8 and without its escapes; what is no valid UTF-8 is taken as ISO 8859-1.
std::string to_text(std::string_view string);

// A word for a message: on one line, and not longer than a line should be.
std::string to_shown(std::string_view word);

} // namespace a2l
