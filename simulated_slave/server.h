#pragma once
// The simulated slave on a UDP socket, with a thread of its own.

#include "a2l/a2l_file.h"
#include "io/file_descriptor.h"
#include "io/udp_socket.h"
#include "link.h"
#include "slave.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <thread>

namespace simulated_slave {

class Server {
  public:
    // Gets a line on each session that begins or ends, on the server's thread.
    using Tell = std::function<void(const std::string& line)>;

    // Binds the socket. Throws std::system_error, and what Slave throws; the name is the one for
    // GET_ID.
    Server(const a2l::File& file, const std::set<Fault>& faults, const io::UdpEndpoint& listen,
           const std::string& name = "simulated_slave");
    ~Server(); // stops it, as stop() does

    const io::UdpEndpoint& endpoint() const { return socket_.local(); }
    std::size_t signals() const { return slave_.signals(); }

    void start(Tell tell = {});
    void stop(); // after it nothing is sent any more. May be called again.

    // Whether the thread has ended without being told to: error() says why after stop().
    bool failed() const { return failed_; }

    // After stop().
    std::map<std::string, SentValue> sent() const { return link_.sent(); } // by signal name
    std::uint64_t lost() const { return link_.lost(); }                    // messages
    std::uint64_t violations() const { return slave_.violations(); }
    const std::string& error() const { return error_; } // empty: none

  private:
    using Clock = std::chrono::steady_clock;

    void run();
    void serve();
    std::uint64_t switch_power(std::uint64_t now_ns);
    std::uint64_t now_ns() const;
    bool wait(std::uint64_t until_ns) const;
    bool take_datagram();
    void take(std::span<const std::uint8_t> datagram, const io::UdpEndpoint& from);
    void tell_session(const char* what) const;

    const Clock::time_point switchedOn_ = Clock::now();
    const io::UdpSocket socket_;
    const io::FileDescriptor wake_; // readable when the thread is to end
    io::UdpEndpoint master_;        // who sent the latest CONNECT
    Link link_;
    Slave slave_;
    const bool losesPower_;
    bool on_ = true;
    std::uint64_t switch_ns_; // when it is switched off or on; the greatest number: not at all
    Tell tell_;
    std::string error_;
    std::atomic<bool> failed_ = false;
    std::thread thread_; // last: it uses all of the above
};

} // namespace simulated_slave
