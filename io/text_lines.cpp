#include "text_lines.h"

#include "file_error.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace io {

void for_each_line(const std::string& path, const TakeLine& take) {
    std::ifstream file(path);
    if (!file)
        throw FileError(path, std::strerror(errno));
    std::size_t number = 0;
    try {
        for (std::string line; std::getline(file, line);)
            if (!take(++number, line))
                return;
    } catch (const std::invalid_argument& error) {
        throw FileError(path, number, error.what());
    }
    if (file.bad()) // a directory, for one, opens but cannot be read
        throw FileError(path, std::strerror(errno));
}

std::vector<std::string> words_of(std::string_view line) {
    constexpr std::string_view white_space = " \t\r\n\v\f";
    std::vector<std::string> words;
    for (std::size_t start = 0, end = 0; end < line.size();) {
        start = line.find_first_not_of(white_space, end);
        if (start == std::string_view::npos)
            break;
        end = std::min(line.find_first_of(white_space, start), line.size());
        words.emplace_back(line.substr(start, end - start));
    }
    return words;
}

std::string_view without_comment(std::string_view line, char mark) {
    return line.substr(0, line.find(mark));
}

} // namespace io
