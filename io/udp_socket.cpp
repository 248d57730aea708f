#include "udp_socket.h"

#include <sys/socket.h>

#include <cerrno>
#include <system_error>

namespace io {

namespace {

std::system_error error(const std::string& what) {
    return std::system_error(errno, std::generic_category(), what);
}

FileDescriptor opened() {
    FileDescriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (socket.get() < 0)
        throw error("cannot open a UDP socket");
    return socket;
}

void bind_to(int socket, const UdpEndpoint& endpoint) {
    const sockaddr_in address = to_sockaddr(endpoint);
    if (bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw error("cannot listen on " + to_text(endpoint));
}

UdpEndpoint bound_endpoint(int socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw error("getsockname");
    return from_sockaddr(address);
}

} // namespace

UdpSocket::UdpSocket(const UdpEndpoint& local) : descriptor_(opened()) {
    bind_to(descriptor_.get(), local);
    local_ = bound_endpoint(descriptor_.get());
}

void UdpSocket::send(const UdpEndpoint& to, std::span<const std::uint8_t> payload) const {
    const sockaddr_in address = to_sockaddr(to);
    if (sendto(descriptor_.get(), payload.data(), payload.size(), 0,
               reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0)
        throw error("cannot send to " + to_text(to));
}

} // namespace io
