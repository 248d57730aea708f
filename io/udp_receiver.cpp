#include "udp_receiver.h"

#include "single_writer.h"

#include <linux/sock_diag.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <utility>

namespace io {

namespace {

constexpr std::size_t batch_size = 64;
constexpr std::size_t largest_datagram = 65536;
// Datagrams that start at the same offset of a page crowd the same cache sets.
constexpr std::size_t datagram_stride = largest_datagram + 192;
constexpr int wanted_buffer = 32 * 1024 * 1024;
constexpr std::chrono::milliseconds longest_drain{100};
constexpr std::chrono::hours longest_age{1}; // of a datagram: the time of day may be set

using std::chrono::steady_clock;
using std::chrono::system_clock;

void enlarge_buffer(int socket) {
    // The first is for the privileged, who may exceed the system's limit.
    if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &wanted_buffer, sizeof wanted_buffer) != 0)
        setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &wanted_buffer, sizeof wanted_buffer);
}

} // namespace

// What one recvmmsg call fills.
struct UdpReceiver::Batch {
    std::unique_ptr<std::uint8_t[]> storage =
        std::make_unique_for_overwrite<std::uint8_t[]>(batch_size * datagram_stride);
    std::array<sockaddr_in, batch_size> sources{};
    std::array<iovec, batch_size> buffers{};
    std::array<mmsghdr, batch_size> messages{};
    struct alignas(cmsghdr) Control {
        std::array<char, CMSG_SPACE(sizeof(timespec))> bytes;
    };
    std::array<Control, batch_size> controls{};
    std::size_t current = 0; // the datagram that the callback has

    Batch() {
        for (std::size_t i = 0; i < batch_size; ++i) {
            buffers[i] = {storage.get() + i * datagram_stride, largest_datagram};
            messages[i].msg_hdr.msg_name = &sources[i];
            messages[i].msg_hdr.msg_iov = &buffers[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
    }

    int receive(int socket, int flags) {
        for (mmsghdr& message : messages)
            message.msg_hdr.msg_namelen = sizeof(sockaddr_in);
        for (std::size_t i = 0; i < batch_size; ++i) {
            messages[i].msg_hdr.msg_control = controls[i].bytes.data();
            messages[i].msg_hdr.msg_controllen = controls[i].bytes.size();
        }
        return recvmmsg(socket, messages.data(), batch_size, flags, nullptr);
    }
};

UdpReceiver::UdpReceiver(UdpSocket socket, const UdpEndpoint& source, Callback callback)
    : socket_(std::move(socket)), source_(source), callback_(std::move(callback)),
      batch_(std::make_unique<Batch>()) {
    enlarge_buffer(socket_.descriptor());
    const int on = 1; // where there are none, arrived() is when it was taken
    setsockopt(socket_.descriptor(), SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    thread_ = std::thread([this] { receive(); });
}

UdpReceiver::~UdpReceiver() {
    stop();
}

void UdpReceiver::stop() {
    if (!thread_.joinable())
        return;
    stopping_ = true;
    // Wakes the thread: a UDP socket that is shut down hands out what it holds, and then messages
    // that come from nowhere. (The call itself reports that such a socket has no peer.)
    shutdown(socket_.descriptor(), SHUT_RD);
    thread_.join();
}

void UdpReceiver::receive() {
    // Waits for the first datagram of a batch and takes with it what else is there.
    while (take_batch(MSG_WAITFORONE) && !stopping_) {
    }
    if (!stopping_ && errorNumber_ == 0)
        errorNumber_ = ECONNABORTED; // shut down by somebody else
    const auto end = std::chrono::steady_clock::now() + longest_drain;
    while (take_batch(MSG_DONTWAIT) && std::chrono::steady_clock::now() < end) {
    }
}

// False when nothing will come any more: the socket has been shut down, or has failed.
bool UdpReceiver::take_batch(int flags) {
    const int count = batch_->receive(socket_.descriptor(), flags);
    if (count < 0) {
        if (errno != EINTR && errno != EAGAIN)
            errorNumber_ = errno;
        return errno == EINTR;
    }
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        const mmsghdr& message = batch_->messages[i];
        if (message.msg_hdr.msg_namelen == 0)
            return false;
        if (!(from_sockaddr(batch_->sources[i]) == source_)) {
            add(foreign_, 1);
            continue;
        }
        add(datagrams_, 1);
        add(bytes_, message.msg_len);
        batch_->current = i;
        callback_(static_cast<const std::uint8_t*>(batch_->buffers[i].iov_base), message.msg_len);
    }
    return true;
}

// The system stamps with the time of day; of that only its age is used.
steady_clock::time_point UdpReceiver::arrived() const {
    const steady_clock::time_point now = steady_clock::now();
    const msghdr& message = batch_->messages[batch_->current].msg_hdr;
    const cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (header == nullptr || header->cmsg_type != SCM_TIMESTAMPNS)
        return now;
    timespec stamp{};
    std::memcpy(&stamp, CMSG_DATA(header), sizeof stamp);
    const auto received =
        std::chrono::seconds(stamp.tv_sec) + std::chrono::nanoseconds(stamp.tv_nsec);
    const auto age = std::chrono::nanoseconds(system_clock::now().time_since_epoch()) - received;
    return now -
           std::clamp<std::chrono::nanoseconds>(age, std::chrono::nanoseconds(0), longest_age);
}

UdpReceiver::Counters UdpReceiver::counters() const {
    std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
    socklen_t size = sizeof memory;
    getsockopt(socket_.descriptor(), SOL_SOCKET, SO_MEMINFO, memory.data(), &size);
    return {datagrams_, bytes_, foreign_, memory[SK_MEMINFO_DROPS]};
}

int UdpReceiver::buffer_size() const {
    int bytes = 0;
    socklen_t size = sizeof bytes;
    getsockopt(socket_.descriptor(), SOL_SOCKET, SO_RCVBUF, &bytes, &size);
    return bytes;
}

std::string UdpReceiver::error() const {
    return errorNumber_ == 0 ? "" : std::string(std::strerror(errorNumber_));
}

} // namespace io
