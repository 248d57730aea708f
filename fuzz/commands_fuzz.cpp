// Commands and answers of a session, as a capture has them. Each message begins with a byte that
// says from whom it is, and a byte with its length.

#include "task/sources/command_reader.h"
#include "xcp_master/session_error.h"

namespace {

// What is found has to hold together, whatever the messages were.
void check(const task::CapturedSessions& found) {
    std::uint64_t packets = 0;
    for (const task::CapturedSession& session : found.sessions) {
        if (session.setUp >= found.setUps.size() || session.firstPacket < packets ||
            session.endPacket < session.firstPacket || session.endPacket > found.packets)
            __builtin_trap();
        packets = session.endPacket;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::span<const std::uint8_t> rest(data, size);
    xcp_master::StatedProperties stated;
    stated.daq.emplace();
    task::CommandReader reader(stated, false);
    std::uint64_t frame = 0;
    try {
        while (rest.size() >= 2 && rest.size() - 2 >= rest[1]) {
            const xcp::Message message{static_cast<std::uint16_t>(frame), rest.subspan(2, rest[1])};
            if ((rest[0] & 1) != 0)
                reader.take_from_slave({}, ++frame, message);
            else
                reader.take_command({}, ++frame, message);
            rest = rest.subspan(2 + message.packet.size());
        }
        check(reader.finish(frame));
    } catch (const xcp_master::SessionError&) {
        // the one way in which a session may be refused
    }
    return 0;
}
