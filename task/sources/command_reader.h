#pragma once
// Follows the commands of a session and what the slave answers, as they went over the network. A
// command counts when the slave took it: what it refused or did not answer has changed nothing.

#include "captured_sessions.h"
#include "xcp/daq_set_up.h"
#include "xcp/message.h"

#include <map>
#include <optional>
#include <set>
#include <span>
#include <vector>

namespace task {

class CommandReader {
  public:
    // As for read_sessions(). The calls below throw xcp_master::SessionError for a session that
    // cannot be decoded.
    CommandReader(const xcp_master::StatedProperties& stated, bool stampsAlways);

    void take_command(const io::UdpEndpoint& master, std::uint64_t frame,
                      const xcp::Message& message);
    void take_from_slave(const io::UdpEndpoint& master, std::uint64_t frame,
                         const xcp::Message& message);

    // After the last frame.
    CapturedSessions finish(std::uint64_t lastFrame);

  private:
    struct Command {
        io::UdpEndpoint master;
        std::uint64_t frame;
        std::uint64_t packets; // DAQ packets before it
        std::uint16_t ctr;
        std::vector<std::uint8_t> packet;
    };

    std::optional<Command> match(const io::UdpEndpoint& master,
                                 std::span<const std::uint8_t> answer);
    void execute(const Command& command, std::span<const std::uint8_t> answer);
    void stop_all(std::uint64_t frame);
    void follow_lists(const Command& command, std::uint64_t frame);
    std::vector<CapturedList> lists_that_run() const;
    std::optional<CapturedList> list_that_runs(std::uint16_t number) const;
    void begin(const Command& command, std::vector<CapturedList> lists);
    void end(std::uint64_t frame, std::uint64_t packets);
    std::size_t set_up_of(std::vector<CapturedList> lists);
    xcp_master::SlaveProperties described_slave() const;
    CapturedSession* open();

    // What the slave took, by command.
    void took(const xcp::Connect& command, const xcp::Connect::Answer& answer);
    void took(const xcp::Disconnect& command, const xcp::Acknowledgement& answer);
    void took(const xcp::GetCommModeInfo& command, const xcp::GetCommModeInfo::Answer& answer);
    void took(const xcp::GetId& command, const xcp::GetId::Answer& answer);
    void took(const xcp::GetDaqProcessorInfo& command,
              const xcp::GetDaqProcessorInfo::Answer& answer);
    void took(const xcp::GetDaqResolutionInfo& command,
              const xcp::GetDaqResolutionInfo::Answer& answer);
    void took(const xcp::WriteDaq& command, const xcp::Acknowledgement& answer);
    void took(const xcp::WriteDaqMultiple& command, const xcp::Acknowledgement& answer);
    void took(const xcp::StartStopDaqList& command, const xcp::StartStopDaqList::Answer& answer);
    template <class Other, class Answer>
    void took(const Other& command, const Answer& answer);

    const xcp_master::StatedProperties stated_;
    bool stampsAlways_;
    xcp_master::SlaveProperties slave_;
    std::set<std::uint8_t>
        told_;                 // codes of the commands whose answers say what a packet looks like
    bool interleaved_ = false; // the slave takes commands before it has answered others

    xcp::DaqSetUp<a2l::MemoryPlace> lists_; // of size 0: not written
    std::map<std::uint16_t, std::uint8_t> firstPids_;

    std::vector<Command> waiting_; // for an answer
    bool answered_ = false;        // the last command
    bool isOpen_ = false;          // the last session
    CapturedSessions result_;
};

} // namespace task
