#pragma once
// The socket of a session: commands go out of it and everything from the slave comes into it. What
// is no DAQ packet waits for the session; whole datagrams go to the sink once it is open.

#include "datagram_source.h"
#include "io/udp_receiver.h"
#include "xcp_master/command_channel.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace task {

class SlaveLink : public xcp_master::Link {
  public:
    // Binds a socket and begins to receive. `stopWanted` ends the session's waiting once, so that
    // it can be closed in order; `urgent` ends all of its waiting. Any thread may ask them. Throws
    // std::system_error.
    SlaveLink(const io::UdpEndpoint& slave, std::function<bool()> stopWanted,
              std::function<bool()> urgent);

    // The session's thread.
    xcp_master::Time now() const override;
    void send(std::span<const std::uint8_t> datagram) override;
    std::optional<xcp_master::Received> receive(xcp_master::Time until) override;
    void close_in_order() override { closing_ = true; }

    // From now on datagrams go there, on the receiving thread, or nowhere.
    using Take = std::function<void(std::span<const std::uint8_t> payload, Arrival arrival)>;
    void open(Take take);
    void shut() { open({}); }

    // Waits, a moment at most, until no DAQ packet comes any more: those of a session before.
    void await_quiet() const;

    // Since when no DAQ packet has come: by now(), and 0 before the first.
    xcp_master::Time last_daq() const { return xcp_master::Time(lastDaq_); }

    // How often the slave has said that the session is over. Any thread.
    std::uint64_t terminations() const { return terminations_; }

    // Hands on what has arrived and ends receiving.
    void stop() { receiver_.stop(); }

    const io::UdpReceiver& receiver() const { return receiver_; }

  private:
    void receive_datagram(std::span<const std::uint8_t> payload) noexcept;
    void keep_answers(std::span<const std::uint8_t> payload);
    void check_interruption();

    const io::UdpEndpoint slave_;
    const std::function<bool()> stopWanted_;
    const std::function<bool()> urgent_;
    bool closing_ = false; // the session's thread

    std::mutex mutex_;
    std::condition_variable arrived_;
    std::deque<xcp_master::Received> packets_;       // guarded by mutex_
    std::atomic<xcp_master::Time::rep> lastDaq_ = 0; // when a DAQ packet came; 0: never

    std::mutex takeMutex_;
    Take take_; // guarded by takeMutex_
    std::atomic<std::uint64_t> terminations_ = 0;
    io::UdpReceiver receiver_; // last: its thread uses all of the above
};

} // namespace task
