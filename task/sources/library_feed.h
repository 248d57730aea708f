#pragma once
// Hands messages to the library so that its sample time follows the slave's, however long a pause
// and whatever the slave's clock does. The library has 32 bits of time: it takes a timestamp below
// the one before for a wrap, 4.29 s ahead, misses the wraps of a longer pause, and after more than
// three seconds without a timestamp takes the host's time. So no time goes back here, a long step
// is made in short ones, and in a pause the last time is repeated: by ticks, packets of an ODT that
// no slave has, which bring a timestamp and no value.

#include "datagram_source.h"

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace task {

// The name of the tick's entry in the library's measurement table.
constexpr const char* tick_entry = "(time)";

// One thread's at a time.
class LibraryFeed {
  public:
    // Adds an ODT for the ticks to the library's measurement table, which stays as it is from here
    // on. The library is called inside of the calls below.
    explicit LibraryFeed(PayloadSink library);

    // Messages as they are: their timestamps run on from latest() to `latest_ns`, in steps that
    // follow() allows.
    void pass(std::span<const std::uint8_t> payload, std::optional<std::int64_t> latest_ns);

    // Whether the library gets a time right without help: neither back nor too far ahead.
    static bool follows(std::optional<std::int64_t> before_ns, std::int64_t time_ns);

    // A message whose packet has no timestamp; a message with another time in its timestamp, raised
    // to the latest one when it is lower.
    void put(std::span<const std::uint8_t> message);
    void put(std::span<const std::uint8_t> message, std::int64_t time_ns);

    // Hands on what was put.
    void flush();

    // To be called from time to time.
    void keep_alive();

    std::optional<std::int64_t> latest() const { return latest_ns_; }

    struct Counts {
        std::uint64_t raised = 0; // samples whose time was raised
        std::int64_t largestRaise_ns = 0;
    };
    const Counts& counts() const { return counts_; }

  private:
    void put_tick(std::int64_t time_ns);
    void hand_over(std::span<const std::uint8_t> payload);

    const PayloadSink library_;
    std::vector<std::uint8_t> tick_; // a message; empty when no ODT was free
    std::vector<std::uint8_t> messages_;
    std::optional<std::int64_t> latest_ns_;
    std::chrono::steady_clock::time_point lastCall_; // of the library
    Counts counts_;
};

} // namespace task
