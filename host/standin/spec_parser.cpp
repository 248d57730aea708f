// The line functions of the runtime's spec-file parser. What the host leaves open is chosen here: a
// section's key stands as a whole word at the start of its line; a search begins at the top of the
// file, so sections may come in any order; 0 is the result for a last line without a line feed.

#include "halmor_runtime.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

constexpr std::size_t line_size = 1024;
constexpr const char* default_delimiters = " \t\r\n";

constexpr std::int16_t whole_line = 1;
constexpr std::int16_t last_line = 0; // without a line feed
constexpr std::int16_t no_line = -1;

bool is_key_line(std::string_view line, std::string_view key) {
    const bool wordEnds = line.size() == key.size() ||
                          (line.size() > key.size() && std::strchr(" \t", line[key.size()]));
    return line.starts_with(key) && wordEnds;
}

} // namespace

std::int16_t get_next_line(std::FILE* file, char* line) {
    int character = std::getc(file);
    if (character == EOF)
        return no_line;
    std::size_t length = 0;
    for (; character != EOF && character != '\n'; character = std::getc(file))
        if (length < line_size - 1)
            line[length++] = static_cast<char>(character);
    if (character == '\n' && length > 0 && line[length - 1] == '\r')
        --length;
    line[length] = '\0';
    return character == '\n' ? whole_line : last_line;
}

std::int16_t get_1st_line(std::FILE* file, char* line, const char* key) {
    char candidate[line_size];
    std::rewind(file);
    while (get_next_line(file, candidate) == whole_line)
        if (is_key_line(candidate, key))
            return get_next_line(file, line);
    return no_line;
}

std::uint64_t parse_line_delim(char* line, int maxTokens, int slotSize, int /*mode*/, char* tokens,
                               std::uint64_t* /*unused*/, const char* delimiters) {
    const auto slots = static_cast<std::size_t>(std::max(maxTokens, 0));
    const auto size = static_cast<std::size_t>(std::max(slotSize, 1));
    std::uint64_t found = 0;
    const char* rest = line;
    for (std::size_t slot = 0; slot < slots; ++slot) {
        rest += std::strspn(rest, delimiters);
        const std::size_t length = std::strcspn(rest, delimiters);
        const std::size_t kept = std::min(length, size - 1);
        char* token = tokens + slot * size;
        std::memcpy(token, rest, kept);
        token[kept] = '\0'; // a slot that gets no token is an empty text
        rest += length;
        found += length > 0 ? 1 : 0;
    }
    return found;
}

std::uint64_t parse_line(char* line, int maxTokens, int slotSize, int mode, char* tokens,
                         std::uint64_t* unused) {
    return parse_line_delim(line, maxTokens, slotSize, mode, tokens, unused, default_delimiters);
}
