#pragma once
// Datagrams from a slave that the task itself sets up, starts and stops.

#include "datagram_source.h"
#include "session_keeper.h"
#include "slave_link.h"
#include "xcp_master/dto_form.h"
#include "xcp_master/session.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace task {

struct SlaveSettings {
    std::chrono::milliseconds timeout; // of a command
    xcp_master::Trace trace;           // may be empty
    std::function<bool()> stopWanted;  // as for SlaveLink
    std::function<bool()> urgent;
};

class SlaveSource : public DatagramSource {
  public:
    // Binds a socket. Throws std::system_error.
    SlaveSource(const io::UdpEndpoint& slave, SlaveSettings settings);
    ~SlaveSource() override { stop(); }

    // "127.0.0.1:5555 from 0.0.0.0:40000": the slave, and the socket that speaks to it.
    std::string way() const;

    // Connects and asks what the slave can, before start(). Throws Failure.
    xcp_master::SlaveProperties connect(const xcp_master::StatedProperties& stated,
                                        const std::vector<xcp_master::WantedList>& lists);

    // Makes the plan that start() sets the slave up with. Throws Failure when it does not fit.
    const xcp_master::DaqPlan& make_plan(const std::vector<xcp_master::WantedList>& lists);

    void start(DatagramSink& sink) override;
    std::string description() const override;
    bool can_wait() const override { return false; }
    bool ended() const override;
    std::string state() const override { return keeper_ ? keeper_->state() : ""; }
    void doubt_session() override;
    std::vector<std::string> doubts() const override;
    void stop() override;
    void check() const override;
    Losses losses() const override;
    std::vector<ListInfo> lists() const override;
    std::vector<std::string> notes() const override;

  private:
    [[noreturn]] void fail(const std::string& cause) const;
    void begin(DatagramSink& sink, const std::vector<std::uint8_t>& firstPids);
    bool begin_again(DatagramSink& sink);
    void check_plan(const xcp_master::SlaveProperties& slave) const;
    std::chrono::nanoseconds longest_silence() const;

    const io::UdpEndpoint slave_;
    std::atomic<bool> stopping_ = false;
    SlaveLink link_;
    xcp_master::Session session_; // the keeper's while there is one
    xcp_master::StatedProperties stated_;
    std::vector<xcp_master::WantedList> wanted_;
    xcp_master::SlaveProperties properties_; // of the first session
    xcp_master::DaqPlan plan_;
    mutable std::mutex formMutex_;
    std::shared_ptr<xcp_master::DtoForm> form_; // of this session; guarded by formMutex_
    std::uint64_t overloads_ = 0;               // of the sessions before; guarded by formMutex_
    std::uint64_t untold_ = 0;                  // guarded by formMutex_
    std::optional<SessionKeeper> keeper_;
    std::string endError_; // why the session did not end in order
};

} // namespace task
