#include "udp_receiver.h"

#include <linux/sock_diag.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <system_error>

namespace halmor_standin {

namespace {

constexpr std::size_t batch_size = 64;
constexpr std::size_t largest_datagram = 65536;
// Datagrams that start at the same offset of a page crowd the same cache sets.
constexpr std::size_t datagram_stride = largest_datagram + 192;
constexpr int wanted_buffer = 32 * 1024 * 1024;
constexpr std::chrono::milliseconds longest_drain{100};

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void enlarge_buffer(int socket) {
    // The first is for the privileged, who may exceed the system's limit.
    if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &wanted_buffer, sizeof wanted_buffer) != 0)
        setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &wanted_buffer, sizeof wanted_buffer);
}

FileDescriptor bound_socket(const UdpEndpoint& listen) {
    FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (socket.get() < 0)
        fail("cannot open a UDP socket");
    enlarge_buffer(socket.get());
    const sockaddr_in address = to_sockaddr(listen);
    if (bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        fail("cannot listen on " + to_text(listen));
    return socket;
}

FileDescriptor wake_up_event() {
    FileDescriptor event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (event.get() < 0)
        fail("cannot make an event");
    return event;
}

// The thread is the only writer, so a plain sum is enough.
void add(std::atomic<std::uint64_t>& counter, std::uint64_t amount) {
    counter.store(counter.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
}

} // namespace

// What one recvmmsg call fills.
struct UdpReceiver::Batch {
    std::unique_ptr<std::uint8_t[]> storage =
        std::make_unique_for_overwrite<std::uint8_t[]>(batch_size * datagram_stride);
    std::array<sockaddr_in, batch_size> sources{};
    std::array<iovec, batch_size> buffers{};
    std::array<mmsghdr, batch_size> messages{};

    Batch() {
        for (std::size_t i = 0; i < batch_size; ++i) {
            buffers[i] = {storage.get() + i * datagram_stride, largest_datagram};
            messages[i].msg_hdr.msg_name = &sources[i];
            messages[i].msg_hdr.msg_iov = &buffers[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
    }

    int receive(int socket) {
        for (mmsghdr& message : messages)
            message.msg_hdr.msg_namelen = sizeof(sockaddr_in);
        return recvmmsg(socket, messages.data(), batch_size, MSG_DONTWAIT, nullptr);
    }
};

UdpReceiver::UdpReceiver(const UdpEndpoint& listen, const UdpEndpoint& source, Callback callback)
    : socket_(bound_socket(listen)), wakeUp_(wake_up_event()), source_(source),
      callback_(std::move(callback)), batch_(std::make_unique<Batch>()),
      thread_([this] { receive(); }) {}

UdpReceiver::~UdpReceiver() {
    stop();
}

void UdpReceiver::stop() {
    if (!thread_.joinable())
        return;
    stopping_ = true;
    eventfd_write(wakeUp_.get(), 1);
    thread_.join();
}

void UdpReceiver::receive() {
    std::array<pollfd, 2> events{{{socket_.get(), POLLIN, 0}, {wakeUp_.get(), POLLIN, 0}}};
    while (!stopping_) {
        if (take_batch())
            continue;
        if (errorNumber_ != 0)
            return;
        poll(events.data(), events.size(), -1);
    }
    const auto end = std::chrono::steady_clock::now() + longest_drain;
    while (take_batch() && std::chrono::steady_clock::now() < end) {
    }
}

// False when there was nothing, or the socket has failed.
bool UdpReceiver::take_batch() {
    const int count = batch_->receive(socket_.get());
    if (count < 0) {
        if (errno == EINTR)
            return true;
        if (errno != EAGAIN && errno != EWOULDBLOCK)
            errorNumber_ = errno;
        return false;
    }
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        if (from_sockaddr(batch_->sources[i]) == source_)
            deliver(static_cast<const std::uint8_t*>(batch_->buffers[i].iov_base),
                    batch_->messages[i].msg_len);
        else
            add(foreign_, 1);
    }
    return true;
}

void UdpReceiver::deliver(const std::uint8_t* data, std::uint64_t length) {
    add(datagrams_, 1);
    add(bytes_, length);
    try {
        callback_(data, length);
    } catch (const std::exception& error) {
        if (failures_ == 0) // without allocating: memory may be what is missing
            std::fprintf(stderr, "udp receiver: a datagram was not taken: %s\n", error.what());
        add(failures_, 1);
    }
}

UdpReceiver::Counters UdpReceiver::counters() const {
    std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
    socklen_t size = sizeof memory;
    getsockopt(socket_.get(), SOL_SOCKET, SO_MEMINFO, memory.data(), &size);
    return {datagrams_, bytes_, foreign_, failures_, memory[SK_MEMINFO_DROPS]};
}

int UdpReceiver::buffer_size() const {
    int bytes = 0;
    socklen_t size = sizeof bytes;
    getsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &bytes, &size);
    return bytes;
}

std::string UdpReceiver::error() const {
    return errorNumber_ == 0 ? "" : std::string(std::strerror(errorNumber_));
}

} // namespace halmor_standin
