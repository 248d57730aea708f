#pragma once
// A UDP socket that is bound to one endpoint, sends from it and receives on it: an XCP slave
// answers to the port that a command came from.

#include "file_descriptor.h"
#include "udp_endpoint.h"

#include <cstdint>
#include <span>

namespace io {

class UdpSocket {
  public:
    // Throws std::system_error, which names the endpoint that cannot be had.
    explicit UdpSocket(const UdpEndpoint& local);

    // Where it is bound; the port that the system chose when none was given.
    const UdpEndpoint& local() const { return local_; }

    // Sends one datagram. Any thread. Throws std::system_error.
    void send(const UdpEndpoint& to, std::span<const std::uint8_t> payload) const;

    // For receiving; owned by the object.
    int descriptor() const { return descriptor_.get(); }

  private:
    FileDescriptor descriptor_;
    UdpEndpoint local_;
};

} // namespace io
