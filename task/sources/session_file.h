#pragma once
// The sessions of a capture file, one after the other: each slave's packets, in whatever form, come
// out in the receiver's own and with the numbers that the receiver has for their DAQ list and ODT.

#include "capture_reader.h"
#include "captured_sessions.h"
#include "file_source.h"
#include "io/udp_endpoint.h"
#include "xcp/message.h"
#include "xcp_master/daq_plan.h"
#include "xcp_master/dto_form.h"

#include <atomic>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace task {

struct OdtPlace {
    std::uint8_t list;
    std::uint8_t odt;
};

// How the packets of a set-up are taken.
struct SessionLayout {
    xcp_master::DaqProperties slave;
    xcp_master::DaqPlan plan; // in the slave's numbers, from its first list on
    std::vector<std::uint8_t> firstPids;
    // Where the receiver has the ODTs, by list and ODT of the plan. Of a list without places
    // nothing is asked for.
    std::vector<std::vector<OdtPlace>> places;
    std::vector<std::uint16_t> unknown; // lists that run, by the slave's numbers, without an entry
};

class SessionFile : public DatagramFile {
  public:
    // Opens the file. The layouts stand in the order of the sessions' set-ups. Throws
    // io::FileError.
    SessionFile(const std::string& path, const io::UdpEndpoint& slave, bool recordedPace,
                std::vector<CapturedSession> sessions, std::vector<SessionLayout> layouts);

    std::string description() const override;
    void deliver_all(const std::stop_token& stop, DatagramSink& sink) override;
    std::uint64_t foreign() const override { return foreign_; }
    std::uint64_t overloads() const override { return overloads_; }
    std::uint64_t untold() const override { return untold_; }
    std::vector<SampleEnd> sample_ends() const override;
    std::vector<std::string> doubts() const override;

  private:
    const CapturedSession* session_at(std::uint64_t frame);
    void enter(const CapturedSession& session, Arrival recorded, DatagramSink& sink);
    std::span<const std::uint8_t> convert(std::span<const std::uint8_t> payload, Arrival arrival);
    void append(const xcp::Message& message);

    const std::string path_;
    const io::UdpEndpoint slave_;
    const bool recordedPace_;
    const std::vector<CapturedSession> sessions_;
    const std::vector<SessionLayout> layouts_;
    CaptureReader reader_;

    std::size_t next_ = 0; // the session of this frame, or the next one
    const CapturedSession* current_ = nullptr;
    const SessionLayout* layout_ = nullptr; // of the current one
    std::optional<xcp_master::DtoForm> form_;
    Arrival latest_;            // of what was handed on
    Arrival::duration shift_{}; // of the session's times
    std::vector<std::uint8_t> converted_;
    std::atomic<std::uint64_t> foreign_ = 0;
    std::atomic<std::uint64_t> overloads_ = 0;
    std::atomic<std::uint64_t> untold_ = 0;
};

} // namespace task
