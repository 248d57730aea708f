#pragma once
// How long samples were held, as counts, so that a day of them takes no more memory than a second.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace task {

class Delays {
  public:
    void add(std::chrono::nanoseconds delay) {
        const auto step = static_cast<std::size_t>(std::max<std::int64_t>(delay / width, 0));
        ++counts_[std::min(step, counts_.size() - 1)];
        ++count_;
        largest_ = std::max(largest_, delay);
    }

    std::uint64_t count() const { return count_; }
    std::chrono::nanoseconds largest() const { return largest_; }

    // To a tenth of a millisecond; of delays up to 0.2 s.
    std::chrono::nanoseconds median() const {
        std::uint64_t below = 0;
        std::size_t step = 0;
        while (step + 1 < counts_.size() && (below + counts_[step]) * 2 < count_)
            below += counts_[step++];
        return step * width;
    }

  private:
    static constexpr std::chrono::microseconds width{100};
    std::array<std::uint64_t, 2000> counts_{};
    std::uint64_t count_ = 0;
    std::chrono::nanoseconds largest_{0};
};

} // namespace task
