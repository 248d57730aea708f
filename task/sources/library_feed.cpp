#include "library_feed.h"

#include "api_xcp_daq.h"
#include "xcp/message.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <utility>

namespace task {

namespace {

constexpr std::int64_t longest_step = 4'000'000'000; // nanoseconds, less than a wrap
constexpr std::int64_t most_steps = 1'000'000;       // for a pause of 46 days
constexpr std::chrono::seconds longest_pause{1};
constexpr std::size_t stamp_at = xcp::message_header_size + xcp::identification_size;

void store(std::span<std::uint8_t> message, std::int64_t time_ns) {
    for (std::size_t i = 0; i < xcp::timestamp_size; ++i)
        message[stamp_at + i] = static_cast<std::uint8_t>(time_ns >> 8 * i);
}

// An ODT of a DAQ list that the table does not have: the last one.
std::optional<std::pair<std::uint8_t, std::uint8_t>> free_odt() {
    for (int list = MAX_NUMBER_DAQ_LISTS - 1; list >= 0; --list)
        for (int odt = xcp::last_daq_pid; odt >= 0; --odt)
            if (!appData.daqList[static_cast<std::size_t>(list)].odtTableInfo.contains(odt))
                return std::pair{static_cast<std::uint8_t>(odt), static_cast<std::uint8_t>(list)};
    return {};
}

// A packet of one byte behind its timestamp, which no variable takes. The measurement log is of the
// slave's packets: it does not get the entry.
std::vector<std::uint8_t> make_tick() {
    std::vector<std::uint8_t> message;
    const auto place = free_odt();
    if (!place)
        return message;
    const auto [odt, list] = *place;
    std::ofstream log;
    log.swap(appData.measurementFile);
    api_xcp_daq::addMeasurement(tick_entry, list, odt, 0, 1, MODE_TIMESTAMP);
    log.swap(appData.measurementFile);
    const std::uint8_t packet[] = {odt, list, 0, 0, 0, 0, 0};
    xcp::append_message(message, 0, packet);
    return message;
}

} // namespace

LibraryFeed::LibraryFeed(PayloadSink library) : library_(std::move(library)), tick_(make_tick()) {}

bool LibraryFeed::follows(std::optional<std::int64_t> before_ns, std::int64_t time_ns) {
    return !before_ns || (time_ns >= *before_ns && time_ns - *before_ns <= longest_step);
}

void LibraryFeed::pass(std::span<const std::uint8_t> payload,
                       std::optional<std::int64_t> latest_ns) {
    latest_ns_ = latest_ns;
    hand_over(payload);
}

void LibraryFeed::hand_over(std::span<const std::uint8_t> payload) {
    lastCall_ = std::chrono::steady_clock::now();
    library_(payload.data(), payload.size());
}

void LibraryFeed::put(std::span<const std::uint8_t> message) {
    messages_.insert(messages_.end(), message.begin(), message.end());
}

void LibraryFeed::put(std::span<const std::uint8_t> message, std::int64_t time_ns) {
    if (latest_ns_ && time_ns < *latest_ns_) {
        ++counts_.raised;
        counts_.largestRaise_ns = std::max(counts_.largestRaise_ns, *latest_ns_ - time_ns);
        time_ns = *latest_ns_;
    }
    for (std::int64_t i = 0; i < most_steps && !follows(latest_ns_, time_ns); ++i) {
        *latest_ns_ += longest_step;
        put_tick(*latest_ns_);
    }
    latest_ns_ = time_ns;
    put(message);
    store(std::span(messages_).last(message.size()), time_ns);
}

void LibraryFeed::put_tick(std::int64_t time_ns) {
    if (tick_.empty())
        return;
    put(tick_);
    store(std::span(messages_).last(tick_.size()), time_ns);
}

void LibraryFeed::flush() {
    if (!messages_.empty())
        hand_over(messages_);
    messages_.clear();
}

void LibraryFeed::keep_alive() {
    if (!latest_ns_ || std::chrono::steady_clock::now() - lastCall_ < longest_pause)
        return;
    put_tick(*latest_ns_);
    flush();
}

} // namespace task
