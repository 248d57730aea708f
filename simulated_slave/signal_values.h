#pragma once
// What value a signal has at a time, raw and physical.

#include "a2l/a2l_file.h"
#include "xcp/packet_fields.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace simulated_slave {

xcp::ByteOrder order_of(a2l::ByteOrder order);

// A sine with a period of 1 to 5 s, which the signal's number chooses: integers over all that their
// type holds, floats between their limits. A double holds each exactly. The bits lie in the lower
// bytes. Times: nanoseconds since the lists were started.
std::uint64_t raw_value(const a2l::Signal& signal, std::size_t number, std::uint64_t time_ns);

// Of the signal's bytes in memory: bit mask (for integers; without a shift), sign of the type, then
// factor * raw + offset, rounded after each step.
double physical_value(const a2l::Signal& signal, std::span<const std::uint8_t> bytes);

} // namespace simulated_slave
