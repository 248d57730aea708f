#include "session_keeper.h"

#include "interruptible_sleep.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace task {

namespace {

using namespace std::chrono_literals;

constexpr auto look = 20ms;       // how often the slave is looked at
constexpr auto ask_interval = 1s; // and asked, when it is away

} // namespace

SessionKeeper::SessionKeeper(SlaveLink& link, xcp_master::Session& session,
                             std::chrono::nanoseconds silence, BeginAgain beginAgain)
    : link_(link), session_(session), silence_(silence), beginAgain_(std::move(beginAgain)),
      terminations_(link.terminations()), known_(link.now().count()),
      thread_([this](const std::stop_token& stop) { watch(stop); }) {}

void SessionKeeper::stop() {
    stopping_ = true;
    thread_.request_stop();
    if (thread_.joinable())
        thread_.join();
}

std::chrono::nanoseconds SessionKeeper::silent_for() const {
    return link_.now() - std::max(link_.last_daq(), xcp_master::Time(known_));
}

bool SessionKeeper::is_well() {
    const bool over = link_.terminations() != terminations_ || doubted_;
    return !over && silent_for() < silence_;
}

void SessionKeeper::watch(const std::stop_token& stop) {
    try {
        while (sleep_until(std::chrono::steady_clock::now() + look, stop))
            if (!is_well())
                recover(stop);
    } catch (const xcp_master::Interrupted&) {
        return; // whoever interrupts ends the session
    } catch (const std::exception& error) {
        set(error_, error.what());
    }
}

// Until the slave is there: with the session that it had, or with another one.
void SessionKeeper::recover(const std::stop_token& stop) {
    terminations_ = link_.terminations();
    doubted_ = false;
    set(doing_, "asking the slave");
    bool there = try_to([this] { return session_.runs(); });
    while (!there && !stop.stop_requested()) {
        const auto next = std::chrono::steady_clock::now() + ask_interval;
        there = try_to(beginAgain_);
        if (!there && !sleep_until(next, stop))
            return;
    }
    terminations_ = link_.terminations();
    doubted_ = false;
    known_ = link_.now().count();
    set(doing_, "");
}

// A slave that is just being switched on may refuse, and there may be no way to it for a while.
bool SessionKeeper::try_to(const std::function<bool()>& act) {
    try {
        return act();
    } catch (const xcp_master::Interrupted&) {
        throw;
    } catch (const xcp_master::Unsuitable&) {
        throw;
    } catch (const std::runtime_error& error) { // of the session, or of the system
        set(doing_, std::string(error.what()) + "; trying again");
        return false;
    }
}

void SessionKeeper::set(std::string& text, const std::string& value) {
    const std::lock_guard lock(mutex_);
    text = value;
}

std::string SessionKeeper::state() const {
    const std::chrono::nanoseconds silent = link_.now() - link_.last_daq();
    const std::lock_guard lock(mutex_);
    if (link_.last_daq() == xcp_master::Time{} || (doing_.empty() && silent < silence_))
        return doing_;
    const double seconds = std::chrono::duration<double>(silent).count();
    return fmt::format("silent for {:.0f} s{}{}", seconds, doing_.empty() ? "" : ": ", doing_);
}

std::string SessionKeeper::error() const {
    const std::lock_guard lock(mutex_);
    return error_;
}

} // namespace task
