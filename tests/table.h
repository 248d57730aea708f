#pragma once
// Short ways to fill the measurement table and to make packets and datagrams.

#include "api_xcp_daq.h"

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

// A conversion for an entry that is there already; big-endian on the wire.
inline void convert(const std::string& name, double factor, double offset, double lower,
                    double upper, int byteOrder = 0) {
    api_xcp_daq::addComputeMethod(name, 0, 0, factor, offset, 0, byteOrder, lower, upper);
}

inline void decode(const Bytes& packet, timespec base = {}) {
    api_xcp_daq::processFrame(packet, &base);
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
    for (const Bytes& packet : packets) {
        const Bytes bytes = message(packet);
        payload.insert(payload.end(), bytes.begin(), bytes.end());
    }
    return payload;
}

} // namespace table
