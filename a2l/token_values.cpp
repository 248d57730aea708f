#include "token_values.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace a2l {

namespace {

bool is_hexadecimal(std::string_view word) {
    return word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
}

std::optional<std::uint64_t> to_unsigned(std::string_view word, int base) {
    std::uint64_t value = 0;
    const char* end = word.data() + word.size();
    const auto parsed = std::from_chars(word.data(), end, value, base);
    if (parsed.ec != std::errc{} || parsed.ptr != end)
        return {};
    return value;
}

// What from_chars gives nothing for: beyond the largest, or nearer to 0 than the least.
double out_of_range(std::string_view word) {
    const std::size_t exponent = word.find_first_of("eE");
    if (exponent != word.npos && word.substr(exponent + 1).starts_with('-'))
        return 0;
    const double most = std::numeric_limits<double>::max();
    return word.starts_with('-') ? -most : most;
}

// Bytes of the UTF-8 sequence that the text begins with; 0 when it is none.
std::size_t utf8_length(std::string_view text) {
    struct Form {
        std::size_t length;
        unsigned char first, last;             // of the first byte
        unsigned char firstSecond, lastSecond; // of the second byte: nothing overlong, no surrogate
    };
    static constexpr Form forms[] = {
        {1, 0x00, 0x7F, 0, 0},       {2, 0xC2, 0xDF, 0x80, 0xBF}, {3, 0xE0, 0xE0, 0xA0, 0xBF},
        {3, 0xE1, 0xEC, 0x80, 0xBF}, {3, 0xED, 0xED, 0x80, 0x9F}, {3, 0xEE, 0xEF, 0x80, 0xBF},
        {4, 0xF0, 0xF0, 0x90, 0xBF}, {4, 0xF1, 0xF3, 0x80, 0xBF}, {4, 0xF4, 0xF4, 0x80, 0x8F}};
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    for (const Form& form : forms) {
        if (byte(0) < form.first || byte(0) > form.last)
            continue;
        if (text.size() < form.length)
            return 0;
        if (form.length > 1 && (byte(1) < form.firstSecond || byte(1) > form.lastSecond))
            return 0;
        for (std::size_t i = 2; i < form.length; ++i)
            if ((byte(i) & 0xC0) != 0x80)
                return 0;
        return form.length;
    }
    return 0;
}

bool is_utf8(std::string_view text) {
    for (std::size_t length = 1; !text.empty(); text.remove_prefix(length)) {
        length = utf8_length(text);
        if (length == 0)
            return false;
    }
    return true;
}

std::string latin1_to_utf8(std::string_view text) {
    std::string result;
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (code >= 0x80)
            result += static_cast<char>(0xC0 | code >> 6);
        result += code >= 0x80 ? static_cast<char>(0x80 | (code & 0x3F)) : character;
    }
    return result;
}

} // namespace

std::optional<double> to_real(std::string_view word) {
    if (word.starts_with('+'))
        word.remove_prefix(1);
    const bool isNegative = word.starts_with('-');
    if (is_hexadecimal(word.substr(isNegative))) {
        const auto value = to_unsigned(word.substr(isNegative + 2), 16);
        const double sign = isNegative ? -1 : 1;
        return value ? std::optional(sign * static_cast<double>(*value)) : std::nullopt;
    }
    double value = 0;
    const char* end = word.data() + word.size();
    const auto parsed = std::from_chars(word.data(), end, value);
    if (parsed.ptr != end || parsed.ec == std::errc::invalid_argument || std::isnan(value))
        return {};
    if (parsed.ec == std::errc::result_out_of_range)
        return out_of_range(word);
    const double most = std::numeric_limits<double>::max();
    return std::clamp(value, -most, most); // a word for infinity
}

std::optional<std::uint64_t> to_integer(std::string_view word) {
    if (is_hexadecimal(word))
        return to_unsigned(word.substr(2), 16);
    if (const auto value = to_unsigned(word, 10))
        return value;
    const auto real = to_real(word);
    constexpr double exact = 9007199254740992; // 2^53: beyond it doubles have gaps
    if (!real || *real < 0 || *real > exact || *real != std::floor(*real))
        return {};
    return static_cast<std::uint64_t>(*real);
}

std::string to_text(std::string_view string) {
    std::string text = is_utf8(string) ? std::string(string) : latin1_to_utf8(string);
    std::size_t size = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char next = i + 1 < text.size() ? text[i + 1] : '\0';
        if ((text[i] == '\\' && (next == '"' || next == '\\')) || (text[i] == '"' && next == '"'))
            ++i;
        text[size++] = text[i];
    }
    text.resize(size);
    return text;
}

std::string to_shown(std::string_view word) {
    constexpr std::size_t longest = 80;
    std::string text = to_text(word.substr(0, longest)) + (word.size() > longest ? "..." : "");
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    return text;
}

} // namespace a2l
