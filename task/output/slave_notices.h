#pragma once
// What the slave says beside answers and DAQ packets: events and texts, for a line each.

#include "task/sources/datagram_source.h"

#include <chrono>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <vector>

namespace task {

// Any thread may call; one at a time gets in.
class SlaveNotices {
  public:
    // The messages of a datagram.
    void take(std::span<const std::uint8_t> payload);

    // What has come since the last call, in the slave's words, `seconds` after the start; a few
    // lines a second, and how many were left out.
    std::vector<std::string> lines(double seconds);

    struct Counts {
        std::uint64_t events = 0;
        std::uint64_t services = 0;
    };
    Counts counts() const;

  private:
    mutable std::mutex mutex_; // of all below
    std::vector<std::string> words_;
    std::uint64_t leftOut_ = 0;
    double second_ = 0.0; // in which lines were given last
    std::size_t given_ = 0;
    Counts counts_;
};

} // namespace task
