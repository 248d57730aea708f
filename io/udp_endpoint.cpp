#include "udp_endpoint.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <charconv>
#include <memory>
#include <stdexcept>

namespace io {

UdpEndpoint resolve_endpoint(const std::string& host, long port) {
    if (port < 0 || port > 65535)
        throw std::invalid_argument("port outside 0 to 65535: " + std::to_string(port));
    if (host.empty())
        throw std::invalid_argument("no address");
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* list = nullptr;
    if (const int error = getaddrinfo(host.c_str(), nullptr, &hints, &list); error != 0)
        throw std::invalid_argument("no IPv4 address for \"" + host + "\": " + gai_strerror(error));
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> found(list, freeaddrinfo);
    UdpEndpoint endpoint = from_sockaddr(*reinterpret_cast<const sockaddr_in*>(found->ai_addr));
    endpoint.port = static_cast<std::uint16_t>(port);
    return endpoint;
}

UdpEndpoint parse_endpoint(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos)
        throw std::invalid_argument("expected ADDRESS:PORT, found " + text);
    long port = -1;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data() + colon + 1, end, port);
    if (parsed.ec != std::errc{} || parsed.ptr != end)
        throw std::invalid_argument("no port number in " + text);
    return resolve_endpoint(text.substr(0, colon), port);
}

std::string to_text(const UdpEndpoint& endpoint) {
    char address[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &endpoint.address, address, sizeof address);
    return std::string(address) + ":" + std::to_string(endpoint.port);
}

sockaddr_in to_sockaddr(const UdpEndpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr = endpoint.address;
    address.sin_port = htons(endpoint.port);
    return address;
}

UdpEndpoint from_sockaddr(const sockaddr_in& address) {
    return {address.sin_addr, ntohs(address.sin_port)};
}

} // namespace io
