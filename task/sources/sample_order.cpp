#include "sample_order.h"

#include "api_xcp_daq.h"
#include "xcp/byte_order.h"
#include "xcp/message.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace task {

namespace {

constexpr std::int64_t never = std::numeric_limits<std::int64_t>::min();
constexpr std::size_t most_held = 16'777'216; // bytes

std::span<const std::uint8_t> whole(const xcp::Message& message) {
    return {message.packet.data() - xcp::message_header_size,
            message.packet.size() + xcp::message_header_size};
}

} // namespace

// Before the feed adds to the table.
SampleOrder::Lists SampleOrder::stamped_lists() {
    Lists lists;
    for (std::size_t number = 0; number < lists.size(); ++number) {
        std::uint8_t lastOdt = 0;
        for (const auto& [place, entry] : appData.daqList[number].odtEntryMap) {
            const auto& [odt, index] = place;
            if (odt < 0 || odt > xcp::last_daq_pid || (entry->daqMode & MODE_TIMESTAMP) == 0)
                continue;
            lists[number].stamped = true;
            lastOdt = static_cast<std::uint8_t>(odt);
            lists[number].stampedLength[static_cast<std::size_t>(odt)] =
                static_cast<std::size_t>(std::max(entry->lastByte, 0)) + 1 + xcp::timestamp_size;
        }
        lists[number].lastOdts.set(lastOdt);
    }
    return lists;
}

SampleOrder::SampleOrder(std::chrono::milliseconds hold, PayloadSink library,
                         const std::vector<SampleEnd>& ends)
    : hold_(hold), lists_(stamped_lists()), feed_(std::move(library)), due_ns_(never) {
    for (const auto& [list, odt] : ends)
        lists_[list].lastOdts.set(odt);
    const auto stamped =
        std::count_if(lists_.begin(), lists_.end(), [](const List& list) { return list.stamped; });
    passes_ = hold.count() == 0 || stamped < 2;
}

void SampleOrder::take(std::span<const std::uint8_t> payload, Arrival arrival) {
    const std::lock_guard lock(mutex_);
    lastTake_ = arrival;
    if (passes_)
        pass(payload, arrival);
    else
        hold_messages(payload, arrival);
    feed_.flush();
}

// Empty for a packet without a timestamp.
std::optional<std::uint32_t> SampleOrder::stamp_of(std::span<const std::uint8_t> packet) const {
    if (packet.size() < xcp::identification_size + xcp::timestamp_size ||
        packet[1] >= lists_.size() || lists_[packet[1]].stampedLength[packet[0]] != packet.size())
        return {};
    return xcp::load_little_endian<std::uint32_t>(&packet[xcp::identification_size]);
}

std::int64_t SampleOrder::time_of(std::span<const std::uint8_t> packet, std::uint32_t stamp,
                                  Arrival arrival) {
    const std::int64_t time = time_.take(packet[1], stamp, arrival);
    watch_.take(packet[1], time, arrival);
    return time;
}

std::chrono::nanoseconds SampleOrder::off_by(std::span<const std::uint8_t> payload,
                                             Arrival arrival) const {
    const std::lock_guard lock(mutex_);
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);)
        if (const auto stamp = stamp_of(message.packet))
            return time_.off_by(*stamp, arrival);
    return {};
}

// The whole datagram as it is, unless a timestamp needs another value.
void SampleOrder::pass(std::span<const std::uint8_t> payload, Arrival arrival) {
    bool asItIs = true;
    std::optional<std::int64_t> latest = feed_.latest();
    times_.clear();
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);)
        if (const auto stamp = stamp_of(message.packet)) {
            const std::int64_t time = time_of(message.packet, *stamp, arrival);
            asItIs = asItIs && LibraryFeed::follows(latest, time) &&
                     static_cast<std::uint32_t>(time) == *stamp;
            latest = time;
            times_.push_back(time);
        }
    if (asItIs)
        return feed_.pass(payload, latest);
    auto time = times_.begin();
    messages = xcp::MessageWalk(payload);
    for (xcp::Message message{}; messages.next(message);)
        if (stamp_of(message.packet))
            feed_.put(whole(message), *time++);
        else
            feed_.put(whole(message));
}

void SampleOrder::hold_messages(std::span<const std::uint8_t> payload, Arrival arrival) {
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);) {
        if (message.is_daq() && message.packet.size() >= xcp::identification_size &&
            message.packet[1] < lists_.size())
            hold_packet(whole(message), message.packet, arrival);
        else
            feed_.put(whole(message));
    }
    release(arrival);
}

void SampleOrder::hold_packet(std::span<const std::uint8_t> message,
                              std::span<const std::uint8_t> packet, Arrival arrival) {
    List& list = lists_[packet[1]];
    if (const auto stamp = stamp_of(packet)) {
        close(list);
        list.open = Sample{packet[1], time_of(packet, *stamp, arrival), arrival, {}};
    }
    if (!list.open) // without a time there is no order
        return feed_.put(message);
    std::vector<std::uint8_t>& messages = list.open->messages;
    messages.insert(messages.end(), message.begin(), message.end());
    if (list.lastOdts[packet[0]])
        close(list);
}

void SampleOrder::close(List& list) {
    if (!list.open)
        return;
    heldBytes_ += list.open->messages.size();
    arrivals_.emplace_back(list.open->arrival, list.open->time_ns);
    held_.emplace(list.open->time_ns, std::move(*list.open));
    list.open.reset();
}

void SampleOrder::release(Arrival now) {
    for (; !arrivals_.empty() && now - arrivals_.front().first >= hold_; arrivals_.pop_front())
        due_ns_ = std::max(due_ns_, arrivals_.front().second);
    while (!held_.empty() &&
           (held_.begin()->first <= due_ns_ || all_others_are_later(held_.begin()->second)))
        let_go_first(now);
    for (; heldBytes_ > most_held; ++overflows_)
        let_go_first(now);
}

bool SampleOrder::all_others_are_later(const Sample& sample) const {
    for (std::size_t number = 0; number < lists_.size(); ++number)
        if (number != sample.list && lists_[number].stamped &&
            time_.shown(number).value_or(never) < sample.time_ns)
            return false;
    return true;
}

void SampleOrder::let_go_first(Arrival now) {
    const Sample sample = std::move(held_.begin()->second);
    held_.erase(held_.begin());
    heldBytes_ -= sample.messages.size();
    delays_.add(now - sample.arrival);
    const std::span messages(sample.messages);
    xcp::Message stamped{};
    xcp::MessageWalk(messages).next(stamped);
    const std::size_t first = whole(stamped).size();
    feed_.put(messages.first(first), sample.time_ns);
    feed_.put(messages.subspan(first));
}

void SampleOrder::advance(Arrival now) {
    constexpr std::chrono::milliseconds silence{100};
    const std::lock_guard lock(mutex_);
    if (now - lastTake_ >= silence)
        release(now);
    feed_.flush();
}

void SampleOrder::let_go_all() {
    for (List& list : lists_)
        close(list);
    while (!held_.empty())
        let_go_first(lastTake_);
    arrivals_.clear();
    due_ns_ = never;
}

void SampleOrder::keep_alive() {
    const std::lock_guard lock(mutex_);
    feed_.keep_alive();
}

void SampleOrder::flush() {
    const std::lock_guard lock(mutex_);
    let_go_all();
    feed_.flush();
}

void SampleOrder::begin_session() {
    flush();
    const std::lock_guard lock(mutex_);
    time_.begin_session();
    watch_.begin_session();
}

SampleOrder::Counts SampleOrder::counts() const {
    const std::lock_guard lock(mutex_);
    return {feed_.counts(), overflows_, delays_};
}

TimingWatch SampleOrder::timing() const {
    const std::lock_guard lock(mutex_);
    return watch_;
}

} // namespace task
