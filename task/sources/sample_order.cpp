#include "sample_order.h"

#include "xcp/byte_order.h"
#include "xcp/message.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace task {

namespace {

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::min();
constexpr std::size_t most_held = 16'777'216; // bytes
constexpr std::int64_t second = 1'000'000'000;
constexpr std::int64_t wrap = std::int64_t{1} << 32; // of a timestamp, in nanoseconds

} // namespace

SampleOrder::SampleOrder(std::chrono::milliseconds hold, PayloadSink sink)
    : hold_(hold), sink_(std::move(sink)), due_ns_(never) {
    for (std::size_t number = 0; number < lists_.size(); ++number) {
        const xcpDAQList& table = appData.daqList[number];
        List& list = lists_[number];
        for (const auto& [place, entry] : table.odtEntryMap) {
            const auto& [odt, index] = place;
            if (odt < 0 || odt > xcp::last_daq_pid || (entry->daqMode & MODE_TIMESTAMP) == 0)
                continue;
            list.stamped = true;
            list.lastOdt = static_cast<std::uint8_t>(odt);
            list.stampedLength[static_cast<std::size_t>(odt)] =
                static_cast<std::size_t>(std::max(entry->lastByte, 0)) + 1 + xcp::timestamp_size;
        }
    }
    const auto stamped =
        std::count_if(lists_.begin(), lists_.end(), [](const List& list) { return list.stamped; });
    passes_ = hold.count() == 0 || stamped < 2;
}

void SampleOrder::take(std::span<const std::uint8_t> payload, Clock::time_point now) {
    if (passes_)
        return sink_(payload.data(), payload.size());
    const std::lock_guard lock(mutex_);
    lastTake_ = now;
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);) {
        if (message.is_daq() && message.packet.size() >= xcp::identification_size &&
            message.packet[1] < lists_.size())
            take_packet(message.ctr, message.packet, now);
        else
            sink_(message.packet.data() - xcp::message_header_size,
                  message.packet.size() + xcp::message_header_size);
    }
    release(now);
}

void SampleOrder::take_packet(std::uint16_t ctr, std::span<const std::uint8_t> packet,
                              Clock::time_point now) {
    List& list = lists_[packet[1]];
    const bool stamped = list.stampedLength[packet[0]] == packet.size();
    if (stamped) {
        close(list);
        const auto stamp =
            xcp::load_little_endian<std::uint32_t>(&packet[xcp::identification_size]);
        const std::int64_t time = unwrap(list, stamp, now);
        list.shown_ns = std::max(list.shown_ns.value_or(time), time);
        list.shownAt = now;
        list.open = Sample{packet[1], time, now, {}};
    }
    if (!list.open) // without a time there is no order
        return sink_(packet.data() - xcp::message_header_size,
                     packet.size() + xcp::message_header_size);
    xcp::append_message(list.open->messages, ctr, packet);
    if (packet[0] == list.lastOdt)
        close(list);
}

// Near to the last time of the list, or of any list: up to a second back, else ahead. After a
// longer pause the host's clock tells how often the timestamp has turned.
std::int64_t SampleOrder::unwrap(const List& list, std::uint32_t stamp,
                                 Clock::time_point now) const {
    const List* known = &list;
    for (const List& other : lists_)
        if (!known->shown_ns && other.shown_ns)
            known = &other;
    if (!known->shown_ns)
        return stamp;
    const std::int64_t last = *known->shown_ns;
    std::int64_t ahead = static_cast<std::uint32_t>(stamp - static_cast<std::uint32_t>(last));
    if (ahead > wrap - second)
        ahead -= wrap;
    const std::int64_t elapsed = std::chrono::nanoseconds(now - known->shownAt).count();
    if (elapsed > 2 * second)
        ahead +=
            wrap * std::llround(static_cast<double>(elapsed - ahead) / static_cast<double>(wrap));
    return last + ahead;
}

void SampleOrder::close(List& list) {
    if (!list.open)
        return;
    heldBytes_ += list.open->messages.size();
    arrivals_.emplace_back(list.open->arrival, list.open->time_ns);
    held_.emplace(list.open->time_ns, std::move(*list.open));
    list.open.reset();
}

void SampleOrder::release(Clock::time_point now) {
    for (; !arrivals_.empty() && now - arrivals_.front().first >= hold_; arrivals_.pop_front())
        due_ns_ = std::max(due_ns_, arrivals_.front().second);
    while (!held_.empty() &&
           (held_.begin()->first <= due_ns_ || all_others_are_later(held_.begin()->second)))
        let_go_first();
    for (; heldBytes_ > most_held; ++counts_.overflows)
        let_go_first();
}

bool SampleOrder::all_others_are_later(const Sample& sample) const {
    for (std::size_t number = 0; number < lists_.size(); ++number) {
        const List& other = lists_[number];
        if (number != sample.list && other.stamped &&
            (!other.shown_ns || *other.shown_ns < sample.time_ns))
            return false;
    }
    return true;
}

void SampleOrder::let_go_first() {
    Sample sample = std::move(held_.begin()->second);
    held_.erase(held_.begin());
    heldBytes_ -= sample.messages.size();
    let_go(sample);
}

void SampleOrder::let_go(Sample& sample) {
    if (lastOut_ns_ && sample.time_ns < *lastOut_ns_) {
        ++counts_.raised;
        counts_.largestRaise_ns = std::max(counts_.largestRaise_ns, *lastOut_ns_ - sample.time_ns);
        for (std::size_t i = 0; i < xcp::timestamp_size; ++i)
            sample.messages[xcp::message_header_size + xcp::identification_size + i] =
                static_cast<std::uint8_t>(*lastOut_ns_ >> 8 * i);
    } else {
        lastOut_ns_ = sample.time_ns;
    }
    sink_(sample.messages.data(), sample.messages.size());
}

void SampleOrder::advance(Clock::time_point now) {
    constexpr std::chrono::milliseconds silence{100};
    const std::lock_guard lock(mutex_);
    if (now - lastTake_ >= silence)
        release(now);
}

void SampleOrder::flush() {
    const std::lock_guard lock(mutex_);
    for (List& list : lists_)
        close(list);
    while (!held_.empty())
        let_go_first();
    arrivals_.clear();
}

void SampleOrder::begin_session() {
    flush();
    const std::lock_guard lock(mutex_);
    for (List& list : lists_)
        list.shown_ns.reset();
    due_ns_ = never;
    lastOut_ns_.reset();
}

SampleOrder::Counts SampleOrder::counts() const {
    const std::lock_guard lock(mutex_);
    return counts_;
}

} // namespace task
