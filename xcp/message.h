#pragma once
// The payload of a datagram as the XCP transport layer on Ethernet has it: messages end to end,
// each LEN and CTR (16 bits, little-endian), then the LEN bytes of one XCP packet, PID first.

#include "byte_order.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace xcp {

constexpr std::size_t message_header_size = 4;

// Packet classes by PID. PIDs from 0xC0 up are taken by events, errors, responses and the service
// request, so an ODT number in a DAQ packet ends at 0xBF.
constexpr std::uint8_t last_daq_pid = 0xBF;
constexpr std::uint8_t event_pid = 0xFD;
constexpr std::uint8_t service_request_pid = 0xFC;

// A DAQ packet starts with ODT number and DAQ list number; a timestamp of 4 bytes may follow.
constexpr std::size_t identification_size = 2;
constexpr std::size_t timestamp_size = 4;

struct Message {
    std::uint16_t ctr;
    std::span<const std::uint8_t> packet; // points into the payload; may be empty

    bool is_daq() const { return !packet.empty() && packet[0] <= last_daq_pid; }
    // Its code follows the PID.
    bool is_event() const { return packet.size() >= 2 && packet[0] == event_pid; }
    bool is_service_request() const { return !packet.empty() && packet[0] == service_request_pid; }
};

// Appends one message to a payload. The packet has at most 65535 bytes.
inline void append_message(std::vector<std::uint8_t>& payload, std::uint16_t ctr,
                           std::span<const std::uint8_t> packet) {
    const std::size_t words[] = {packet.size(), ctr};
    std::size_t end = payload.size();
    payload.resize(end + message_header_size + packet.size());
    for (const std::size_t word : words) {
        payload[end++] = static_cast<std::uint8_t>(word);
        payload[end++] = static_cast<std::uint8_t>(word >> 8);
    }
    std::copy(packet.begin(), packet.end(), payload.begin() + static_cast<std::ptrdiff_t>(end));
}

// Walks the messages of one payload without reading beyond it.
class MessageWalk {
  public:
    explicit MessageWalk(std::span<const std::uint8_t> payload) : rest(payload) {}

    // Takes the next message. False at the end, which a message that is cut off also is.
    bool next(Message& message) {
        if (rest.size() < message_header_size)
            return false;
        const std::size_t length = load_little_endian<std::uint16_t>(rest.data());
        if (rest.size() - message_header_size < length)
            return false;
        message.ctr = load_little_endian<std::uint16_t>(rest.data() + 2);
        message.packet = rest.subspan(message_header_size, length);
        rest = rest.subspan(message_header_size + length);
        return true;
    }

    // The bytes that were not taken yet. After the end they are no whole message.
    std::size_t left() const { return rest.size(); }

  private:
    std::span<const std::uint8_t> rest;
};

} // namespace xcp
