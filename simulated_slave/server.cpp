#include "server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <system_error>
#include <utility>

namespace simulated_slave {

namespace {

constexpr std::uint64_t never = std::numeric_limits<std::uint64_t>::max();

std::system_error failure(const char* what) {
    return std::system_error(errno, std::generic_category(), what);
}

io::FileDescriptor event_descriptor() {
    io::FileDescriptor descriptor(eventfd(0, EFD_CLOEXEC));
    if (descriptor.get() < 0)
        throw failure("eventfd");
    return descriptor;
}

} // namespace

Server::Server(const a2l::File& file, const std::set<Fault>& faults, const io::UdpEndpoint& listen,
               const std::string& name)
    : socket_(listen), wake_(event_descriptor()),
      link_(faults, [this](std::span<const std::uint8_t> bytes) { socket_.send(master_, bytes); }),
      slave_(
          file, faults, [this](const Datagram& datagram) { link_.send(datagram); }, name),
      losesPower_(faults.contains(Fault::power)), switch_ns_(never) {}

Server::~Server() {
    stop();
}

void Server::start(Tell tell) {
    tell_ = std::move(tell);
    thread_ = std::thread([this] { run(); });
}

void Server::stop() {
    if (!thread_.joinable())
        return;
    eventfd_write(wake_.get(), 1);
    thread_.join();
}

void Server::run() {
    try {
        serve();
        link_.finish();
    } catch (const std::exception& error) {
        error_ = error.what();
        failed_ = true;
    }
}

void Server::serve() {
    for (;;) {
        const std::uint64_t now = now_ns();
        const std::uint64_t due = switch_power(now);
        if (!wait(std::min(due, on_ ? slave_.advance(now) : never)))
            return;
        while (take_datagram()) {
        }
    }
}

// Gives the time at which it is to be looked at again.
std::uint64_t Server::switch_power(std::uint64_t now_ns) {
    constexpr std::uint64_t on_time = 10'000'000'000;
    constexpr std::uint64_t off_time = 3'000'000'000;
    if (!losesPower_)
        return never;
    if (switch_ns_ == never && slave_.running())
        switch_ns_ = now_ns + on_time;
    if (now_ns < switch_ns_)
        return switch_ns_;
    link_.finish();
    slave_.switch_on(now_ns);
    on_ = !on_;
    switch_ns_ = on_ ? never : now_ns + off_time;
    return switch_ns_;
}

std::uint64_t Server::now_ns() const {
    return static_cast<std::uint64_t>(std::chrono::nanoseconds(Clock::now() - switchedOn_).count());
}

// For a datagram, but not beyond a time. False when the thread is to end.
bool Server::wait(std::uint64_t until_ns) const {
    std::array<pollfd, 2> sources{{{socket_.descriptor(), POLLIN, 0}, {wake_.get(), POLLIN, 0}}};
    const std::uint64_t now = now_ns();
    const std::uint64_t left = until_ns > now ? until_ns - now : 0;
    constexpr std::uint64_t second = 1'000'000'000;
    const timespec timeout{static_cast<time_t>(left / second), static_cast<long>(left % second)};
    const timespec* const longest = until_ns == never ? nullptr : &timeout;
    if (ppoll(sources.data(), sources.size(), longest, nullptr) < 0 && errno != EINTR)
        throw failure("cannot wait for datagrams");
    return sources[1].revents == 0;
}

// False when there is none.
bool Server::take_datagram() {
    std::array<std::uint8_t, 65536> bytes;
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t length = recvfrom(socket_.descriptor(), bytes.data(), bytes.size(), MSG_DONTWAIT,
                                    reinterpret_cast<sockaddr*>(&from), &size);
    if (length < 0 && errno != EAGAIN && errno != EINTR)
        throw failure("cannot receive");
    if (length >= 0 && on_)
        take(std::span(bytes).first(static_cast<std::size_t>(length)), io::from_sockaddr(from));
    return length >= 0;
}

// While a session is on, others are heard only when they begin one of their own.
void Server::take(std::span<const std::uint8_t> datagram, const io::UdpEndpoint& from) {
    const bool connects = is_connect(datagram);
    const bool wasConnected = slave_.connected();
    if (wasConnected && !connects && !(from == master_))
        return;
    const std::uint64_t now = now_ns();
    slave_.advance(now); // what is due is still for the master of the session before
    if (connects) {
        link_.finish();
        if (wasConnected)
            tell_session("session ended by ");
        master_ = from;
    }
    slave_.take(datagram, now);
    if (connects)
        tell_session("session begun by ");
    else if (wasConnected && !slave_.connected())
        tell_session("session ended by ");
}

void Server::tell_session(const char* what) const {
    if (tell_)
        tell_(what + io::to_text(master_));
}

} // namespace simulated_slave
