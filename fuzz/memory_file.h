#pragma once
// An input as a file.

#include <cstdlib>
#include <string>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

namespace fuzz {

// A file in memory that can be opened by its path.
class MemoryFile {
  public:
    explicit MemoryFile(std::string_view content) : number_(memfd_create("fuzz", 0)) {
        if (write(number_, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
            std::abort();
        path_ = "/proc/self/fd/" + std::to_string(number_);
    }
    ~MemoryFile() { close(number_); }
    const std::string& path() const { return path_; }

  private:
    int number_;
    std::string path_;
};

} // namespace fuzz
