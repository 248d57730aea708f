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

} // namespace

std::string plan_text(const xcp_master::DaqPlan& plan, const xcp_master::DaqLimits& limits,
                      const std::vector<EventChannel>& events) {
    std::string text;
    for (std::size_t number = 0; number < plan.lists.size(); ++number) {
        const xcp_master::DaqList& list = plan.lists[number];
        std::size_t values = 0;
        for (const auto& odt : list.odts)
            values += odt.size();
        const auto event =
            std::find_if(events.begin(), events.end(),
                         [&](const EventChannel& each) { return each.number == list.event; });
        const std::size_t size = sample_size(list, limits);
        text += fmt::format("DAQ list {}  {}, event channel {} ({}): {} values, {} ODTs, {} bytes "
                            "a sample, {}\n",
                            number, list.name, list.event, event->name, values, list.odts.size(),
                            size, rate_text(*event, size));
    }
    return text;
}

} // namespace task
