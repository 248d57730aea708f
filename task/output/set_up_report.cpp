#include "set_up_report.h"

#include <fmt/format.h>

#include <algorithm>

namespace task {

using xcp_master::EventChannel;

std::string properties_text(const xcp_master::SlaveProperties& slave) {
    std::string text =
        fmt::format("slave       {}\n", slave.id.empty() ? "without a name" : slave.id);
    for (const auto& [name, value] : in_words(slave))
        text += fmt::format("  {:27} {}\n", name, value);
    for (const std::string& remark : slave.remarks)
        text += fmt::format("  note: {}\n", remark);
    return text;
}

namespace {

std::string rate_text(const EventChannel& event, std::size_t sampleSize) {
    if (event.cycle_ns == 0)
        return "not cyclic";
    const double cycle = static_cast<double>(event.cycle_ns) / 1e9;
    return fmt::format("every {:g} ms, {:.0f} bytes a second", cycle * 1e3,
                       static_cast<double>(sampleSize) / cycle);
}

std::string list_text(const std::string& title, const xcp_master::DaqList& list,
                      const xcp_master::DaqLimits& limits,
                      const std::vector<EventChannel>& events) {
    std::size_t values = 0;
    for (const auto& odt : list.odts)
        values += odt.size();
    const auto found = std::find_if(events.begin(), events.end(), [&](const EventChannel& each) {
        return each.number == list.event;
    });
    const EventChannel event = found == events.end() ? EventChannel{list.event, "?", 0} : *found;
    const std::size_t size = sample_size(list, limits);
    return fmt::format("{} event channel {} ({}): {} values, {} ODTs, {} bytes a sample, {}\n",
                       title, list.event, event.name, values, list.odts.size(), size,
                       rate_text(event, size));
}

// Without the lists in between that do not run, and of which the plan has nothing.
std::string captured_lists_text(const CapturedSetUp& setUp, const SessionLayout& layout,
                                const std::vector<EventChannel>& events) {
    std::string text;
    for (const CapturedList& list : setUp.lists) {
        const std::size_t index = list.number - std::size_t{layout.plan.firstDaq};
        text += list_text(fmt::format("DAQ list {} ", list.number), layout.plan.lists[index],
                          limits_of(layout.slave), events);
        if (layout.places[index].empty())
            text +=
                fmt::format("  note: DAQ list {} {}: not decoded\n", list.number,
                            list.odts.empty() ? "runs with entries that the capture does not have"
                                              : "has nothing that is asked for");
    }
    return text;
}

std::string strays_text(std::uint64_t packets, const std::string& when) {
    return packets == 0 ? ""
                        : fmt::format("  note: {} DAQ packets {}: not decoded\n", packets, when);
}

} // namespace

std::string plan_text(const xcp_master::DaqPlan& plan, const xcp_master::DaqLimits& limits,
                      const std::vector<EventChannel>& events) {
    std::string text;
    for (std::size_t number = 0; number < plan.lists.size(); ++number)
        text += list_text(fmt::format("DAQ list {}  {},", number, plan.lists[number].name),
                          plan.lists[number], limits, events);
    return text;
}

std::string sessions_text(const CapturedSessions& found, const std::vector<SessionLayout>& layouts,
                          const std::vector<EventChannel>& events) {
    std::string text;
    for (std::size_t i = 0; i < found.setUps.size(); ++i)
        text += (found.setUps.size() == 1 ? "" : fmt::format("set-up {}\n", i + 1)) +
                properties_text(found.setUps[i].slave) +
                captured_lists_text(found.setUps[i], layouts[i], events);
    std::uint64_t packets = 0;
    for (std::size_t i = 0; i < found.sessions.size(); ++i) {
        const CapturedSession& session = found.sessions[i];
        text += strays_text(session.firstPacket - packets,
                            i == 0 ? "before the first start" : "between two sessions");
        text += fmt::format("session {}   frames {} to {}, set-up {}, master {}: {} DAQ packets\n",
                            i + 1, session.firstFrame, session.lastFrame, session.setUp + 1,
                            to_text(session.master), session.endPacket - session.firstPacket);
        packets = session.endPacket;
    }
    text += strays_text(found.packets - packets, "after the last stop");
    if (found.unread > 0)
        text += fmt::format("  note: {} commands that the slave took have other fields than known: "
                            "passed over\n",
                            found.unread);
    return text;
}

} // namespace task
