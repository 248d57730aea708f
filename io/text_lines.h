#pragma once
// Text files line by line, for readers that name the line in which something is wrong.

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace io {

// Gets a line without its line feed and its number, from 1. False ends the reading. What is wrong
// with the line is thrown as std::invalid_argument.
using TakeLine = std::function<bool(std::size_t number, const std::string& line)>;

// Hands every line of the file to `take`. Throws FileError for a file that cannot be read and, with
// the line's number, for what `take` has found wrong.
void for_each_line(const std::string& path, const TakeLine& take);

// The words of a line: what stands between blanks, tabs and other white space.
std::vector<std::string> words_of(std::string_view line);

// The line up to `mark`, which begins a comment.
std::string_view without_comment(std::string_view line, char mark);

} // namespace io
