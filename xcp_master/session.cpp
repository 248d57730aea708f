#include "session.h"

#include <cstdio>
#include <numeric>

namespace xcp_master {

namespace {

using xcp::Error;
using xcp::StartStopDaqList;
using xcp::StartStopSynch;

// "engSpeed at 0x00027a28, extension 1".
std::string place_text(const MeasuredValue& value) {
    char text[40];
    std::snprintf(text, sizeof text, " at 0x%08x, extension %u", value.address, value.extension);
    return value.name + text;
}

std::string size_text(const DaqPlan& plan) {
    std::size_t odts = 0;
    std::size_t entries = 0;
    for (const DaqList& list : plan.lists) {
        odts += list.odts.size();
        for (const Odt& odt : list.odts)
            entries += odt.size();
    }
    return std::to_string(plan.lists.size()) + " lists, " + std::to_string(odts) + " ODTs and " +
           std::to_string(entries) + " entries";
}

// Calls `use(list number in the slave, list)` for each list.
template <class Use>
void for_each_list(const DaqPlan& plan, Use&& use) {
    for (std::size_t i = 0; i < plan.lists.size(); ++i)
        use(static_cast<std::uint16_t>(plan.firstDaq + i), plan.lists[i]);
}

// Calls `use(SET_DAQ_PTR to its first entry, its entries, list in words)` for each ODT.
template <class Use>
void for_each_odt(const DaqPlan& plan, Use&& use) {
    for_each_list(plan, [&](std::uint16_t daq, const DaqList& list) {
        for (std::size_t i = 0; i < list.odts.size(); ++i)
            use(xcp::SetDaqPtr{daq, static_cast<std::uint8_t>(i), 0},
                entries_of(list.odts[i], plan.maxEntrySize), "list " + list.name);
    });
}

// What is done on the way out cannot fail any more.
template <class Act>
void try_to(const Act& act) {
    try {
        act();
    } catch (const std::exception&) {
        return;
    }
}

} // namespace

Session::Session(Link& link, std::chrono::milliseconds timeout, Trace trace)
    : link_(link), channel_(link, timeout, std::move(trace)) {}

SlaveProperties Session::connect(const StatedProperties& stated,
                                 const std::vector<WantedList>& lists) {
    return ask(connect_or_leave(), stated, lists);
}

SlaveProperties Session::ask(const xcp::Connect::Answer& answer, const StatedProperties& stated,
                             const std::vector<WantedList>& lists) {
    connected_ = true;
    try {
        SlaveProperties slave = ask_properties(channel_, answer, stated);
        check_form(slave);
        ask_events(channel_, lists, stated, slave);
        return slave;
    } catch (...) {
        give_up();
        throw;
    }
}

// A slave that was only slow is not to take the master for connected.
xcp::Connect::Answer Session::connect_or_leave() {
    try {
        return channel_.connect();
    } catch (...) {
        link_.close_in_order();
        try_to([&] { channel_.send_only(xcp::Disconnect{}); });
        throw;
    }
}

void Session::start(const DaqPlan& plan, const BeforeStart& beforeStart) {
    for (int setups = 1;; ++setups)
        try {
            beforeStart(set_up(plan));
            channel_.request(StartStopSynch{StartStopSynch::start_selected});
            gone_ = false;
            return;
        } catch (const AnswerLost&) {
            if (setups == most_setups) {
                give_up();
                throw;
            }
        } catch (...) {
            give_up();
            throw;
        }
}

std::vector<std::uint8_t> Session::set_up(const DaqPlan& plan) {
    free_lists();
    try {
        allocate(plan);
    } catch (const Refused& refused) {
        if (refused.is(Error::memory_overflow))
            throw SessionError("the slave has too little memory for " + size_text(plan) + ": " +
                               refused.what());
        throw;
    }
    write_entries(plan);
    return select_lists(plan);
}

// FREE_DAQ is refused while lists run, as after a lost answer to the start. What the slave says
// when none runs differs from slave to slave.
void Session::free_lists() {
    try {
        channel_.request(StartStopSynch{StartStopSynch::stop_all});
    } catch (const Refused&) {
    }
    channel_.request(xcp::FreeDaq{});
}

void Session::allocate(const DaqPlan& plan) {
    channel_.request(xcp::AllocDaq{static_cast<std::uint16_t>(plan.lists.size())});
    for_each_list(plan, [&](std::uint16_t daq, const DaqList& list) {
        channel_.request(xcp::AllocOdt{daq, static_cast<std::uint8_t>(list.odts.size())},
                         "list " + list.name);
    });
    for_each_odt(plan,
                 [&](const xcp::SetDaqPtr& first, const Odt& entries, const std::string& list) {
                     const auto count = static_cast<std::uint8_t>(entries.size());
                     channel_.request(xcp::AllocOdtEntry{first.daq, first.odt, count}, list);
                 });
}

// The slave's pointer moves on with each entry, but not into the next ODT.
void Session::write_entries(const DaqPlan& plan) {
    for_each_odt(plan,
                 [&](const xcp::SetDaqPtr& first, const Odt& entries, const std::string& list) {
                     channel_.request(first, list);
                     for (const MeasuredValue& entry : entries)
                         channel_.request(xcp::WriteDaq{xcp::WriteDaq::no_bit, entry.size,
                                                        entry.extension, entry.address},
                                          place_text(entry));
                 });
}

std::vector<std::uint8_t> Session::select_lists(const DaqPlan& plan) {
    const std::uint8_t mode = plan.stamped ? xcp::SetDaqListMode::timestamp : 0;
    for_each_list(plan, [&](std::uint16_t daq, const DaqList& list) {
        channel_.request(xcp::SetDaqListMode{mode, daq, list.event, 1, 0},
                         "list " + list.name + " at event " + std::to_string(list.event));
    });
    std::vector<std::uint8_t> firstPids;
    for_each_list(plan, [&](std::uint16_t daq, const DaqList& list) {
        const StartStopDaqList select{StartStopDaqList::select, daq};
        firstPids.push_back(channel_.request(select, "list " + list.name).firstPid);
    });
    return firstPids;
}

bool Session::runs() {
    const auto status = channel_.ask_once(xcp::GetStatus{});
    gone_ = !status || (status->session & xcp::GetStatus::Answer::daq_running) == 0;
    return !gone_;
}

std::optional<SlaveProperties> Session::reconnect(const StatedProperties& stated,
                                                  const std::vector<WantedList>& lists) {
    gone_ = true;
    const auto answer = channel_.connect_once();
    if (!answer)
        return {};
    return ask(*answer, stated, lists);
}

// Each by itself: whatever came of the one, the slave is to get the next. Once somebody is in a
// hurry they go out all the same.
void Session::end() {
    if (!connected_)
        return;
    connected_ = false;
    link_.close_in_order();
    if (gone_) {
        give_up();
        throw SessionError("the slave was away");
    }
    const StartStopSynch stop{StartStopSynch::stop_all};
    const bool stopped = finish(stop);
    const bool freed = finish(xcp::FreeDaq{});
    try_to([&] { channel_.disconnect(); });
    if (!stopped || !freed)
        throw SessionError(failure_);
}

// A refusal is an answer too: none ran, or the slave keeps what is lost with the session anyway.
template <class Command>
bool Session::finish(const Command& command) {
    if (!failure_.empty()) { // it does not answer any more
        try_to([&] { channel_.send_only(command); });
        return false;
    }
    try {
        channel_.ask(command);
    } catch (const Refused&) {
    } catch (const std::exception& error) {
        failure_ = error.what();
        return false;
    }
    return true;
}

// After a failure, which is what is reported. A slave that had been away is tried again soon: it is
// not waited for.
void Session::give_up() {
    if (!gone_)
        return try_to([&] { end(); });
    try_to([&] {
        channel_.send_only(StartStopSynch{StartStopSynch::stop_all});
        channel_.send_only(xcp::Disconnect{});
    });
}

} // namespace xcp_master
