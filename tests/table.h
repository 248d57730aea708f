#pragma once
// Short ways to fill the measurement table and to make packets and datagrams.

#include "api_xcp_daq.h"
#include "xcp/message.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace table {

using Bytes = std::vector<std::uint8_t>;

// Raw values as they are, least significant byte first on the wire.
inline void add_plain(const std::string& name, int daq, int odt, int index, int size,
                      std::uint8_t mode = 0) {
    api_xcp_daq::addMeasurement(name, daq, odt, index, size, mode);
    api_xcp_daq::addComputeMethod(name, daq, 0, 1.0, 0.0, 0, 1, -1e300, 1e300);
}

// One XCP message around a packet.
inline Bytes message(const Bytes& packet, std::uint16_t ctr = 0) {
    const auto length = packet.size();
    Bytes bytes(4 + length);
    bytes[0] = static_cast<std::uint8_t>(length);
    bytes[1] = static_cast<std::uint8_t>(length >> 8);
    bytes[2] = static_cast<std::uint8_t>(ctr);
    bytes[3] = static_cast<std::uint8_t>(ctr >> 8);
    std::copy(packet.begin(), packet.end(), bytes.begin() + 4);
    return bytes;
}

inline Bytes datagram(std::initializer_list<Bytes> packets) {
    Bytes payload;
    for (const Bytes& packet : packets)
        xcp::append_message(payload, 0, packet);
    return payload;
}

} // namespace table
