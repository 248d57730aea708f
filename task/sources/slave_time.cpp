#include "slave_time.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>

namespace task {

namespace {

constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t wrap = std::int64_t{1} << 32; // of a timestamp, in nanoseconds

std::int64_t nanoseconds(Arrival::duration duration) {
    return std::chrono::nanoseconds(duration).count();
}

} // namespace

std::int64_t SlaveTime::take(std::size_t list, std::uint32_t stamp, Arrival arrival) {
    if (sessionBegins_) {
        const std::int64_t time =
            latest_ ? latest_->time_ns + nanoseconds(arrival - latest_->arrival) : stamp;
        shift_ns_ = static_cast<std::uint32_t>(time) - stamp;
        latest_ = Seen{time, arrival};
        sessionBegins_ = false;
    }
    const std::optional<Seen>& own = lists_[list];
    const std::int64_t time = after(own ? *own : *latest_, stamp + shift_ns_, arrival);
    lists_[list] = Seen{own ? std::max(own->time_ns, time) : time, arrival};
    if (time >= latest_->time_ns)
        latest_ = Seen{time, arrival};
    return time;
}

// Near to the last time: up to a second back, else ahead. After a longer pause the host's clock
// tells how often the timestamp has turned, unless the two disagree: then it was the datagram that
// was on its way for so long.
std::int64_t SlaveTime::after(const Seen& last, std::uint32_t stamp, Arrival arrival) {
    std::int64_t ahead = stamp - static_cast<std::uint32_t>(last.time_ns);
    if (ahead > wrap - second)
        ahead -= wrap;
    const std::int64_t elapsed = nanoseconds(arrival - last.arrival);
    const std::int64_t turned =
        wrap * std::llround(static_cast<double>(elapsed - ahead) / static_cast<double>(wrap));
    if (elapsed > 2 * second && std::abs(elapsed - ahead - turned) < second)
        ahead += turned;
    return last.time_ns + ahead;
}

std::chrono::nanoseconds SlaveTime::off_by(std::uint32_t stamp, Arrival arrival) const {
    if (sessionBegins_)
        return {};
    const std::int64_t elapsed = nanoseconds(arrival - latest_->arrival);
    const std::int64_t ahead = after(*latest_, stamp + shift_ns_, arrival) - latest_->time_ns;
    return std::chrono::nanoseconds(std::abs(ahead - elapsed));
}

void SlaveTime::begin_session() {
    sessionBegins_ = true;
    lists_ = {};
}

std::optional<std::int64_t> SlaveTime::shown(std::size_t list) const {
    const auto& seen = lists_[list];
    return seen ? std::optional(seen->time_ns) : std::nullopt;
}

} // namespace task
