#include "properties.h"

#include "signal_values.h"
#include "xcp/message.h"

#include <algorithm>
#include <stdexcept>

namespace simulated_slave {

namespace {

constexpr std::uint8_t default_cto = 248;
constexpr std::uint16_t default_dto = 1024;
constexpr std::uint8_t smallest_cto = 8;
constexpr std::uint16_t greatest_dto = 65507 - xcp::message_header_size; // a datagram of its own

void check(const a2l::Xcp& xcp) {
    if (!xcp.hasDaq)
        throw std::invalid_argument("no DAQ in an IF_DATA XCP or XCPplus");
    if (!xcp.dynamic)
        throw std::invalid_argument("DAQ lists are static: only dynamic ones can be simulated");
    if (xcp.addressGranularity.value_or(1) != 1)
        throw std::invalid_argument("address granularity is not BYTE: it cannot be simulated");
}

} // namespace

const a2l::Event* Properties::find_event(std::uint16_t number) const {
    const auto found = std::find_if(events.begin(), events.end(),
                                    [&](const auto& event) { return event.number == number; });
    return found == events.end() ? nullptr : &*found;
}

Properties properties_of(const a2l::Xcp& xcp) {
    check(xcp);
    Properties slave;
    slave.order = order_of(xcp.byteOrder.value_or(a2l::ByteOrder::little));
    slave.maxCto = std::max(xcp.maxCto.value_or(default_cto), smallest_cto);
    slave.maxDto = std::min(xcp.maxDto.value_or(default_dto), greatest_dto);
    slave.identification = xcp.identificationField;
    slave.maxDaq = xcp.maxDaq;
    slave.minDaq = xcp.minDaq;
    slave.packetAlignment = xcp.packetAlignment;
    slave.granularity = xcp.entryGranularity;
    slave.maxEntrySize = xcp.maxEntrySize == 0 ? std::uint8_t{255} : xcp.maxEntrySize;
    slave.timestamp = xcp.timestamp.value_or(a2l::Timestamp{});
    slave.events = xcp.events;
    return slave;
}

std::uint64_t cycle_of(const a2l::Event& event) {
    constexpr std::uint64_t sporadic_ns = 100'000'000;
    return event.cycle_ns == 0 ? sporadic_ns : event.cycle_ns;
}

} // namespace simulated_slave
