#pragma once
// Commands and answers in plain words, for people who read along.

#include "commands.h"
#include "error_codes.h"
#include "event_codes.h"
#include "message.h"

#include <cstdio>
#include <span>
#include <string>

namespace xcp {

// "0x2a".
inline std::string hexadecimal(std::uint8_t byte) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%02x", byte);
    return text;
}

// "ERR_OUT_OF_RANGE (a parameter is outside of what the slave has)".
inline std::string error_in_words(std::uint8_t code) {
    const ErrorText* const text = find_error_text(code);
    return text == nullptr ? "error " + hexadecimal(code)
                           : std::string(text->name) + " (" + text->advice + ")";
}

template <class Value>
std::string fields_in_words(std::span<const std::uint8_t> packet, ByteOrder order) {
    auto value = read_packet<Value>(packet, order);
    if (!value)
        return "too short";
    PacketTeller teller;
    value->each(teller);
    return teller.text();
}

// Calls `use` with a value of the command that has the code. False, without a call, for another.
template <class Use>
bool with_command(std::uint8_t code, Use&& use) {
    const auto matches = [&]<class Command>(Command command) {
        return Command::code == code && (use(command), true);
    };
    return std::apply([&](auto... command) { return (matches(command) || ...); }, AllCommands{});
}

inline std::string command_name(std::uint8_t code) {
    std::string name = "command " + hexadecimal(code);
    with_command(code, [&]<class Command>(Command) { name = Command::name; });
    return name;
}

// "SET_DAQ_PTR list 0, ODT 1, entry 0".
inline std::string command_in_words(std::span<const std::uint8_t> packet, ByteOrder order) {
    if (packet.empty())
        return "nothing";
    std::string words = command_name(packet[0]);
    with_command(packet[0], [&]<class Command>(Command) {
        const std::string fields = fields_in_words<Command>(packet, order);
        words += fields.empty() ? "" : " " + fields;
    });
    return words;
}

// An event or a service request: "EV_DAQ_OVERLOAD (samples were lost)", or the slave's own text in
// quotation marks.
inline std::string notice_in_words(std::span<const std::uint8_t> packet) {
    const bool event = packet[0] == event_pid;
    std::string kind = event ? "event" : "service request";
    if (packet.size() < 2)
        return kind;
    if (!event && packet[1] == service_text) {
        std::string quoted(1, '"');
        for (const std::uint8_t byte : packet.subspan(2))
            if (byte >= 0x20) // line ends, and the zero at the end
                quoted += byte < 0x7F ? static_cast<char>(byte) : '.'; // in no known character set
        return quoted + '"';
    }
    const EventText* const text = event ? find_event_text(packet[1]) : nullptr;
    std::string words = text == nullptr ? kind + " " + hexadecimal(packet[1])
                                        : std::string(text->name) + " (" + text->meaning + ")";
    for (const std::uint8_t byte : packet.subspan(2))
        words.append(" ").append(hexadecimal(byte));
    return words;
}

// What a slave sends beside DAQ packets; `command` is the code of the one that it may answer.
inline std::string answer_in_words(std::uint8_t command, std::span<const std::uint8_t> packet,
                                   ByteOrder order) {
    if (packet.empty())
        return "nothing";
    std::string words = "ok";
    if (packet[0] == error_pid)
        return packet.size() < 2 ? "an error without a code" : error_in_words(packet[1]);
    if (packet[0] != response_pid)
        return notice_in_words(packet);
    with_command(command, [&]<class Command>(Command) {
        const std::string fields = fields_in_words<typename Command::Answer>(packet, order);
        words += fields.empty() ? "" : ": " + fields;
    });
    return words;
}

} // namespace xcp
