#pragma once
// Looks after a session while it runs, on a thread of its own: when the slave falls silent or its
// session is over, asks whether it is still there, and begins another session when it is again.

#include "slave_link.h"
#include "xcp_master/session.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

namespace task {

class SessionKeeper {
  public:
    // Sets the slave up again and starts it. False when nobody answers. Throws SessionError.
    using BeginAgain = std::function<bool()>;

    // Link and session are used by the thread alone until stop(). `silence` is the time without a
    // DAQ packet after which the slave is asked.
    SessionKeeper(SlaveLink& link, xcp_master::Session& session, std::chrono::nanoseconds silence,
                  BeginAgain beginAgain);

    // Ends the thread, whatever it waits for. May be called again.
    void stop();

    // Whether that is what stop() wants; for the link.
    bool stopping() const { return stopping_; }

    // The slave seems to have begun anew; it is asked. Any thread.
    void doubt() { doubted_ = true; }

    // What it is doing, for a line that is shown; empty while all is well. Any thread.
    std::string state() const;

    // Why there will be no other session; empty while there may be. Any thread.
    std::string error() const;

  private:
    void watch(const std::stop_token& stop);
    void recover(const std::stop_token& stop);
    bool try_to(const std::function<bool()>& act);
    bool is_well();
    std::chrono::nanoseconds silent_for() const;
    void set(std::string& text, const std::string& value);

    SlaveLink& link_;
    xcp_master::Session& session_;
    const std::chrono::nanoseconds silence_;
    const BeginAgain beginAgain_;
    std::atomic<bool> stopping_ = false;
    std::atomic<bool> doubted_ = false;
    std::uint64_t terminations_ = 0;           // that were seen to
    std::atomic<xcp_master::Time::rep> known_; // when the session was last known to be there

    mutable std::mutex mutex_;
    std::string doing_; // guarded by mutex_
    std::string error_; // guarded by mutex_

    std::jthread thread_; // uses all of the above
};

} // namespace task
