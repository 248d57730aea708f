#include "captured_sessions.h"

#include "capture_reader.h"
#include "command_reader.h"
#include "io/file_error.h"
#include "xcp_master/session_error.h"

#include <fmt/format.h>

#include <algorithm>

namespace task {

namespace {

using io::FileError;

// Reads on until the end, or until where the file is damaged: whoever delivers it says so.
bool next_frame(CaptureReader& reader, CapturedFrame& frame) {
    try {
        return reader.next(frame);
    } catch (const FileError&) {
        return false;
    }
}

void take(const CapturedFrame& frame, const io::UdpEndpoint& slave, CommandReader& commands) {
    const CapturedDatagram& datagram = *frame.datagram;
    xcp::MessageWalk messages(datagram.payload);
    for (xcp::Message message{}; messages.next(message);)
        if (datagram.source == slave)
            commands.take_from_slave(datagram.destination, frame.number, message);
        else
            commands.take_command(datagram.source, frame.number, message);
}

void check(const CapturedSessions& found, const std::string& path, const io::UdpEndpoint& slave) {
    const auto fail = [&](const std::string& cause) { throw FileError(path, cause); };
    if (found.commands == 0)
        fail(fmt::format(
            "no XCP command to the slave {} in it{}", to_text(slave),
            found.packets == 0
                ? ""
                : fmt::format(", only {} DAQ packets: they take a --table", found.packets)));
    if (found.sessions.empty())
        fail(fmt::format("no DAQ list of the slave {} is started in it: {} commands, {} of them "
                         "taken by the slave, {} refused",
                         to_text(slave), found.commands, found.taken, found.refused));
    if (std::all_of(found.sessions.begin(), found.sessions.end(),
                    [](const auto& session) { return session.endPacket == session.firstPacket; }))
        fail(fmt::format("no DAQ packet of the slave {} in a session", to_text(slave)));
}

} // namespace

CapturedSessions read_sessions(const std::string& path, const io::UdpEndpoint& slave,
                               const xcp_master::StatedProperties& stated, bool stampsAlways) {
    CaptureReader reader(path);
    CommandReader commands(stated, stampsAlways);
    CapturedFrame frame;
    try {
        while (next_frame(reader, frame))
            if (frame.datagram &&
                (frame.datagram->source == slave || frame.datagram->destination == slave))
                take(frame, slave, commands);
        CapturedSessions found = commands.finish(frame.number);
        check(found, path, slave);
        return found;
    } catch (const xcp_master::SessionError& error) {
        throw FileError(path, error.what());
    }
}

} // namespace task
