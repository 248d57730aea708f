#pragma once
// A DAQ session with one slave, from CONNECT to DISCONNECT. One thread's; every call may take as
// long as the slave's time-outs.

#include "daq_plan.h"
#include "slave_properties.h"

#include <functional>

namespace xcp_master {

class Session {
  public:
    // Gets the number of each list's first ODT, which counts where ODT numbers are absolute.
    using BeforeStart = std::function<void(const std::vector<std::uint8_t>& firstPids)>;

    // Link and trace as for the command channel.
    Session(Link& link, std::chrono::milliseconds timeout, Trace trace);

    // Connects and asks what the slave can. Throws SessionError; the slave is left disconnected
    // then.
    SlaveProperties connect(const StatedProperties& stated, const std::vector<WantedList>& lists);

    // Sets the lists up and starts them. `beforeStart` is called right before the slave is told to
    // start: its DAQ packets count from there on. A set-up in which an answer was lost begins anew,
    // most_setups times in all. Throws SessionError; the slave is left stopped and disconnected
    // then.
    void start(const DaqPlan& plan, const BeforeStart& beforeStart);

    // Asks once whether the lists still run. False when the slave says no, or nothing: the session
    // is gone then.
    bool runs();

    // Connects again when the session is gone, with one CONNECT; start() is to follow. Empty when
    // nobody answers. Throws SessionError; the slave is told to leave the session then, and may be
    // tried again.
    std::optional<SlaveProperties> reconnect(const StatedProperties& stated,
                                             const std::vector<WantedList>& lists);

    // Stops all lists, waits until the slave has, frees them and disconnects. Throws SessionError
    // when the slave does not answer, or the session was gone. To be called once after connect(),
    // whatever came of start().
    void end();

    static constexpr int most_setups = 3;

  private:
    xcp::Connect::Answer connect_or_leave();
    SlaveProperties ask(const xcp::Connect::Answer& answer, const StatedProperties& stated,
                        const std::vector<WantedList>& lists);
    std::vector<std::uint8_t> set_up(const DaqPlan& plan);
    void free_lists();
    void allocate(const DaqPlan& plan);
    void write_entries(const DaqPlan& plan);
    std::vector<std::uint8_t> select_lists(const DaqPlan& plan);
    template <class Command>
    bool finish(const Command& command);
    void give_up();

    Link& link_;
    CommandChannel channel_;
    bool connected_ = false;
    bool gone_ = false;   // the session that was there, and the master looks for another
    std::string failure_; // why the end was not in order
};

} // namespace xcp_master
