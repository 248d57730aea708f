#pragma once
// Packets on their way out: chained into datagrams, with the slave's own counter in each message.

#include "datagram.h"

#include <cstdint>
#include <functional>
#include <span>
#include <utility>
#include <vector>

namespace simulated_slave {

class Outbox {
  public:
    using Send = std::function<void(const Datagram&)>;

    explicit Outbox(Send send) : send_(std::move(send)) {}

    void add(std::span<const std::uint8_t> packet, const std::vector<Datagram::Value>& values);
    void flush();
    void begin_anew(); // with CTR, and without what has not gone out
    void answer(std::span<const std::uint8_t> packet);

  private:
    const Send send_;
    Datagram datagram_; // of DAQ messages, being put together
    std::uint16_t ctr_ = 0;
};

} // namespace simulated_slave
