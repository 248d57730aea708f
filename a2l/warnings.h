#pragma once
// Warnings, as many and as long as somebody reads.

#include "io/file_error.h"

#include <string>
#include <utility>
#include <vector>

namespace a2l {

class Warnings {
  public:
    void add(const io::FileError& warning) {
        if (lines_.size() < most)
            lines_.push_back(std::string(warning.what()).substr(0, longest));
        else
            ++more_;
    }

    std::vector<std::string> take(const std::string& path) {
        if (more_ > 0)
            lines_.emplace_back(
                io::FileError(path, "and " + std::to_string(more_) + " warnings more").what());
        return std::move(lines_);
    }

  private:
    static constexpr std::size_t most = 100;
    static constexpr std::size_t longest = 1000; // bytes
    std::vector<std::string> lines_;
    std::size_t more_ = 0;
};

} // namespace a2l
