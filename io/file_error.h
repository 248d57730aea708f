#pragma once
// What is wrong with a text file, as one line that names file, line and cause.

#include <cstddef>
#include <stdexcept>
#include <string>

namespace io {

class FileError : public std::runtime_error {
  public:
    // Of the file as a whole.
    FileError(const std::string& path, const std::string& cause)
        : std::runtime_error(path + ": " + cause) {}

    // Of one line, counted from 1.
    FileError(const std::string& path, std::size_t line, const std::string& cause)
        : std::runtime_error(path + ":" + std::to_string(line) + ": " + cause) {}
};

} // namespace io
