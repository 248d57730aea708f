#pragma once
// What a capture file tells of a slave's sessions: by the master's commands, and by the slave's
// answers to them.

#include "a2l/a2l_file.h"
#include "io/udp_endpoint.h"
#include "xcp_master/slave_properties.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace task {

// A DAQ list that ran.
struct CapturedList {
    std::uint16_t number = 0; // in the slave
    std::uint16_t event = 0;
    bool stamped = false;
    std::uint8_t firstPid = 0;
    std::vector<std::vector<a2l::MemoryPlace>> odts; // entries that were written

    bool operator==(const CapturedList&) const = default;
};

struct CapturedSetUp {
    xcp_master::SlaveProperties slave;
    std::vector<CapturedList> lists; // by their numbers
};

// From the start of DAQ lists until all have stopped, or until others start as well.
struct CapturedSession {
    std::size_t setUp = 0; // its place in CapturedSessions::setUps
    bool begins = true;    // false: it goes on with more lists than the one before
    io::UdpEndpoint master;
    std::uint64_t firstFrame = 0;  // of the command that starts it
    std::uint64_t lastFrame = 0;   // of the answer to the one that stops it
    std::uint64_t firstPacket = 0; // DAQ packets of the slave before it,
    std::uint64_t endPacket = 0;   // and up to its end
};

struct CapturedSessions {
    std::vector<CapturedSetUp> setUps; // each another than those before
    std::vector<CapturedSession> sessions;
    std::uint64_t packets = 0;  // DAQ packets of the slave, in sessions or not
    std::uint64_t commands = 0; // to the slave
    std::uint64_t taken = 0;    // of these the slave answered positively,
    std::uint64_t refused = 0;  // or refused
    std::uint64_t unread = 0;   // taken, but not what this reader knows of the command
};

// What the A2L file says of the slave stands where the capture has no answer to it. Throws
// io::FileError for a file that cannot be read or has no session of this slave. Where the file is
// damaged, what comes before counts.
CapturedSessions read_sessions(const std::string& path, const io::UdpEndpoint& slave,
                               const xcp_master::StatedProperties& stated, bool stampsAlways);

} // namespace task
