#pragma once
// Looks at the messages of every datagram before the library does, which does not look at CTR.

#include "xcp/message.h"

#include <atomic>
#include <bitset>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>

namespace task {

struct MessageCounts {
    std::uint64_t datagrams = 0;
    std::uint64_t bytes = 0;
    std::uint64_t messages = 0;
    std::uint64_t daqPackets = 0;
    std::uint64_t gaps = 0;      // places where CTR jumped ahead
    std::uint64_t missing = 0;   // messages that these jumps left out and that have not come since
    std::uint64_t late = 0;      // messages that came after one that was sent later
    std::uint64_t repeated = 0;  // messages with a CTR from the past that was not missing
    std::uint64_t cutOff = 0;    // datagrams that end inside a message
    std::uint64_t overloads = 0; // events by which the slave tells that it lost samples
    std::uint64_t terminations = 0; // events by which it tells that the session is over
    // When a DAQ packet came, on the steady clock; its beginning while none has come.
    std::chrono::steady_clock::time_point lastDaqPacket{};
};

// take() belongs to the thread that receives; counts() may be called from any thread.
class MessageCounter {
  public:
    // Gives the number of DAQ packets in it.
    std::uint64_t take(std::span<const std::uint8_t> payload);
    void begin_session(); // CTR begins anew; by the receiving thread

    // How many messages the counter has skipped before the first one in there; of one from the past
    // it is more than half of the counter's turn.
    std::uint16_t skipped_before(std::span<const std::uint8_t> payload) const;
    MessageCounts counts() const;

  private:
    void take_event(std::span<const std::uint8_t> packet);
    void check_ctr(const xcp::Message& message);
    void skip_to(std::uint16_t ctr);
    void take_from_the_past(const xcp::Message& message);

    // The receiving thread's; CTR may start anywhere.
    std::optional<std::uint16_t> expected_;
    std::bitset<0x10000> missed_; // by CTR; of the half before expected_

    std::atomic<std::uint64_t> datagrams_ = 0, bytes_ = 0, messages_ = 0, daqPackets_ = 0;
    std::atomic<std::uint64_t> gaps_ = 0, missing_ = 0, late_ = 0, repeated_ = 0, cutOff_ = 0;
    std::atomic<std::uint64_t> overloads_ = 0, terminations_ = 0;
    std::atomic<std::chrono::steady_clock::time_point> lastDaqPacket_{};
};

} // namespace task
