#pragma once
// What the slave says of itself: the A2L file's IF_DATA, with something sensible where it is
// silent.

#include "a2l/a2l_file.h"
#include "xcp/packet_fields.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace simulated_slave {

struct Properties {
    xcp::ByteOrder order = xcp::ByteOrder::little;
    std::uint8_t maxCto = 0;
    std::uint16_t maxDto = 0;
    a2l::IdentificationField identification = a2l::IdentificationField::absolute;
    std::uint16_t maxDaq = 0; // 0: as many as the memory holds
    std::uint8_t minDaq = 0;  // number of the first list
    std::uint8_t granularity = 1;
    std::uint8_t maxEntrySize = 0;
    std::uint8_t packetAlignment = 1; // bytes
    a2l::Timestamp timestamp;         // of size 0: none
    std::vector<a2l::Event> events;

    bool absolute() const { return identification == a2l::IdentificationField::absolute; }
    std::size_t identification_size() const { return 1 + static_cast<std::size_t>(identification); }
    const a2l::Event* find_event(std::uint16_t number) const; // null: there is none
};

// Throws std::invalid_argument for what cannot be simulated: no DAQ, no dynamic lists, addresses
// that do not count bytes.
Properties properties_of(const a2l::Xcp& xcp);

// An event's cycle; one that is not cyclic happens ten times a second.
std::uint64_t cycle_of(const a2l::Event& event);

} // namespace simulated_slave
