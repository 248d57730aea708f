#pragma once
// The slave's time, out of timestamps of 32 bits in nanoseconds: counted on across their wraps, and
// from one session to the next, when the slave's clock begins anew.

#include "datagram_source.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace task {

// One thread's at a time.
class SlaveTime {
  public:
    static constexpr std::size_t most_lists = 4;

    // The time of a sample, in nanoseconds since any beginning. Of one list it never turns back by
    // more than a second.
    std::int64_t take(std::size_t list, std::uint32_t stamp, Arrival arrival);

    // How far the stamp is off what the host's clock expects after the last one, in whichever
    // direction; it can be seen up to half of a wrap.
    std::chrono::nanoseconds off_by(std::uint32_t stamp, Arrival arrival) const;

    // The slave's clock begins anew: the next timestamp is as much later than the last one before
    // as the host's clock says.
    void begin_session();

    // The latest time that a list has shown in this session; nothing before its first.
    std::optional<std::int64_t> shown(std::size_t list) const;

  private:
    struct Seen {
        std::int64_t time_ns;
        Arrival arrival;
    };

    static std::int64_t after(const Seen& last, std::uint32_t stamp, Arrival arrival);

    std::array<std::optional<Seen>, most_lists> lists_; // in this session
    std::optional<Seen> latest_;                        // of all
    bool sessionBegins_ = true;
    std::uint32_t shift_ns_ = 0; // of the session's timestamps
};

} // namespace task
