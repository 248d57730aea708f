#pragma once
// An IPv4 address with a UDP port.

#include <netinet/in.h>

#include <cstdint>
#include <string>

namespace io {

struct UdpEndpoint {
    in_addr address{};      // network byte order, as the sockets have it
    std::uint16_t port = 0; // host byte order; 0 lets the system choose when a socket is bound

    bool operator==(const UdpEndpoint& other) const {
        return address.s_addr == other.address.s_addr && port == other.port;
    }
};

// Address or name of a host, and a port from 0 to 65535. Throws std::invalid_argument.
UdpEndpoint resolve_endpoint(const std::string& host, long port);

// "ADDRESS:PORT". Throws std::invalid_argument.
UdpEndpoint parse_endpoint(const std::string& text);

std::string to_text(const UdpEndpoint& endpoint);

sockaddr_in to_sockaddr(const UdpEndpoint& endpoint);
UdpEndpoint from_sockaddr(const sockaddr_in& address);

} // namespace io
