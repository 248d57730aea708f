#include "slave_notices.h"

#include "xcp/message.h"
#include "xcp/packet_text.h"

#include <fmt/format.h>

#include <cmath>

namespace task {

constexpr std::size_t most_a_second = 5; // lines

void SlaveNotices::take(std::span<const std::uint8_t> payload) {
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);) {
        if (!message.is_event() && !message.is_service_request())
            continue;
        const std::lock_guard lock(mutex_);
        ++(message.is_event() ? counts_.events : counts_.services);
        if (words_.size() < most_a_second)
            words_.push_back(xcp::notice_in_words(message.packet));
        else
            ++leftOut_;
    }
}

std::vector<std::string> SlaveNotices::lines(double seconds) {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> lines;
    if (std::floor(seconds) != second_) {
        second_ = std::floor(seconds);
        given_ = 0;
        if (leftOut_ > 0)
            lines.push_back(fmt::format("{:5.1f} s  slave: ... and {} more\n", seconds, leftOut_));
        leftOut_ = 0;
    }
    for (const std::string& words : words_)
        if (given_++ < most_a_second)
            lines.push_back(fmt::format("{:5.1f} s  slave: {}\n", seconds, words));
        else
            ++leftOut_;
    words_.clear();
    return lines;
}

SlaveNotices::Counts SlaveNotices::counts() const {
    const std::lock_guard lock(mutex_);
    return counts_;
}

} // namespace task
