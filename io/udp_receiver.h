#pragma once
// Receives the datagrams of one XCP slave on a thread of its own and hands each to a callback.

#include "udp_socket.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace io {

class UdpReceiver {
  public:
    // Payload of one datagram, valid during the call. Runs on the receiver's thread and does not
    // throw: an exception would end the process.
    using Callback = std::function<void(const std::uint8_t*, std::uint64_t)>;

    struct Counters {
        std::uint64_t datagrams;   // handed to the callback
        std::uint64_t bytes;       // of their payloads
        std::uint64_t foreign;     // from another address or port; not handed on
        std::uint64_t kernelDrops; // lost because the socket's buffer was full
    };

    // Starts to receive what comes to the socket from `source`. Throws std::system_error.
    UdpReceiver(UdpSocket socket, const UdpEndpoint& source, Callback callback);

    ~UdpReceiver(); // stops it, as stop() does

    // Hands on what the socket already holds, for a moment at most, and ends the thread. No
    // callback runs after it has returned. May be called again.
    void stop();

    // Sends one datagram from the same socket. Any thread. Throws std::system_error.
    void send(const UdpEndpoint& to, std::span<const std::uint8_t> payload) const {
        socket_.send(to, payload);
    }

    // When the system received the datagram that the callback is being called for; inside of the
    // callback alone.
    std::chrono::steady_clock::time_point arrived() const;

    const UdpEndpoint& local() const { return socket_.local(); }
    Counters counters() const;
    int buffer_size() const; // bytes of the socket's buffer, as the system granted them

    // Why receiving ended without being told to, or empty while it has not.
    std::string error() const;

  private:
    void receive();
    bool take_batch(int flags);

    struct Batch;

    UdpSocket socket_;
    UdpEndpoint source_;
    Callback callback_;
    std::unique_ptr<Batch> batch_; // the receiving thread's

    // Written by the receiving thread.
    std::atomic<std::uint64_t> datagrams_ = 0;
    std::atomic<std::uint64_t> bytes_ = 0;
    std::atomic<std::uint64_t> foreign_ = 0;
    std::atomic<int> errorNumber_ = 0;

    std::atomic<bool> stopping_ = false;
    std::thread thread_; // last: it uses all of the above
};

} // namespace io
