#include "capture_plan.h"

#include "api_xcp_daq.h"
#include "captured_signals.h"
#include "configuration.h"
#include "io/file_error.h"
#include "task/output/set_up_report.h"
#include "xcp/message.h"
#include "xcp_master/session_error.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

namespace task {

namespace {

using a2l::MemoryPlace;
using io::FileError;

std::set<MemoryPlace> places_of(const CapturedSessions& found) {
    std::set<MemoryPlace> places;
    for (const CapturedSetUp& setUp : found.setUps)
        for (const CapturedList& list : setUp.lists)
            for (const auto& odt : list.odts)
                places.insert(odt.begin(), odt.end());
    return places;
}

// ---- one set-up ----

// The form of its packets.
xcp_master::DaqProperties form_of(const CapturedSetUp& setUp) {
    xcp_master::DaqProperties slave = setUp.slave;
    slave.dynamic = true; // whose lists they were does not matter any more
    for (const CapturedList& list : setUp.lists)
        if (list.stamped != setUp.lists[0].stamped)
            throw xcp_master::SessionError(
                fmt::format("of DAQ lists {} and {} one has timestamps and one has none: only all "
                            "or none can be decoded",
                            setUp.lists[0].number, list.number));
    if (!setUp.lists.empty() && !setUp.lists[0].stamped)
        slave.timestampSize = 0;
    check_form(slave);
    if (!setUp.lists.empty())
        slave.minDaq = setUp.lists[0].number;
    return slave;
}

xcp_master::DaqList described(const CapturedList& list) {
    xcp_master::DaqList result{std::to_string(list.number), list.event, {}};
    for (const auto& entries : list.odts) {
        auto& odt = result.odts.emplace_back();
        for (const MemoryPlace& place : entries)
            odt.push_back(
                {"-", place.address, place.extension, static_cast<std::uint8_t>(place.size)});
    }
    return result;
}

// Without places. Throws SessionError when its ODT numbers cannot be told apart.
SessionLayout layout_of(const CapturedSetUp& setUp) {
    SessionLayout layout{form_of(setUp), {}, {}, {}, {}};
    layout.plan.stamped = layout.slave.timestampSize > 0;
    layout.plan.firstDaq = layout.slave.minDaq;
    for (const CapturedList& list : setUp.lists) {
        const std::size_t index = list.number - std::size_t{layout.plan.firstDaq};
        layout.plan.lists.resize(index + 1);
        layout.plan.lists[index] = described(list);
        layout.firstPids.resize(index + 1);
        layout.firstPids[index] = list.firstPid;
    }
    layout.places.resize(layout.plan.lists.size());
    for (const CapturedList& list : setUp.lists)
        if (list.odts.empty())
            layout.unknown.push_back(list.number);
    const xcp_master::DtoForm check(layout.slave, layout.plan, layout.firstPids);
    return layout;
}

// ---- the receiver's table ----

class TableMaker {
  public:
    TableMaker(CapturePlan& plan, const SignalMap& signals) : plan_(plan), signals_(signals) {
        plan_.receiver.lists.resize(MAX_NUMBER_DAQ_LISTS);
    }

    // Gives the set-up's lists their places. One that the receiver has keeps its number, others get
    // one that is free. Throws SessionError for what does not fit.
    void place(const CapturedSetUp& setUp, SessionLayout& layout) {
        std::vector<const CapturedList*> lists;
        for (const CapturedList& list : setUp.lists)
            if (has_values(list))
                lists.push_back(&list);
        if (lists.size() > MAX_NUMBER_DAQ_LISTS)
            throw xcp_master::SessionError(
                fmt::format("{} DAQ lists with values run at once, {} can be decoded: name in the "
                            "spec file's lists what is wanted",
                            lists.size(), MAX_NUMBER_DAQ_LISTS));
        std::array<bool, MAX_NUMBER_DAQ_LISTS> taken{};
        const auto give = [&](const CapturedList& list, std::size_t number) {
            taken[number] = true;
            layout.places[list.number - std::size_t{layout.plan.firstDaq}] = places(list, number);
        };
        for (const CapturedList* list : lists)
            if (list->number < taken.size())
                give(*list, list->number);
        for (const CapturedList* list : lists)
            if (list->number >= taken.size())
                give(*list, static_cast<std::size_t>(std::find(taken.begin(), taken.end(), false) -
                                                     taken.begin()));
    }

  private:
    bool has_values(const CapturedList& list) const {
        const auto named = [&](const MemoryPlace& place) { return signals_.contains(place); };
        return std::any_of(list.odts.begin(), list.odts.end(), [&](const auto& odt) {
            return std::any_of(odt.begin(), odt.end(), named);
        });
    }

    std::vector<OdtPlace> places(const CapturedList& list, std::size_t number) {
        constexpr std::size_t most = xcp::last_daq_pid + 1;
        auto& odts = plan_.receiver.lists[number].odts;
        const auto [first, isNew] = known_.try_emplace({number, list.odts}, odts.size());
        if (isNew && odts.size() + list.odts.size() > most)
            throw xcp_master::SessionError(
                fmt::format("the layouts of DAQ list {} have {} ODTs or more, {} can be had: name "
                            "in the spec file's lists what is wanted",
                            list.number, odts.size() + list.odts.size(), most));
        if (isNew)
            append(list, number);
        std::vector<OdtPlace> places;
        for (std::size_t i = 0; i < list.odts.size(); ++i)
            places.push_back(
                {static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(first->second + i)});
        return places;
    }

    void append(const CapturedList& list, std::size_t number) {
        auto& receiver = plan_.receiver.lists[number];
        std::set<std::string> variables; // a list has each once
        for (auto& odt : described(list).odts) {
            for (std::size_t i = 0; i < odt.size(); ++i) {
                const auto found =
                    signals_.find({odt[i].extension, odt[i].address, std::size_t{odt[i].size}});
                const bool named =
                    found != signals_.end() && variables.insert(found->second.variable).second;
                if (named)
                    odt[i].name = found->second.signal.name;
                add_entry(number, receiver.odts.size(), i, odt[i].size,
                          named ? &found->second : nullptr);
            }
            receiver.odts.push_back(std::move(odt));
        }
    }

    // The conversion goes right behind the entry, since the library gives it to the last entry of
    // the name. Without a signal it is a filler.
    void add_entry(std::size_t number, std::size_t odt, std::size_t index, int size,
                   const NamedSignal* named) {
        const int list = static_cast<int>(number);
        const std::size_t line = named == nullptr ? 0 : named->line;
        const MeasurementLine entry{
            named == nullptr ? fmt::format("filler_{}_{}_{}", number, odt, index) : named->variable,
            list,
            static_cast<int>(odt),
            static_cast<int>(index),
            size,
            MODE_TIMESTAMP};
        plan_.table.push_back({line, entry});
        if (named != nullptr)
            plan_.table.push_back({line, conversion_line(named->variable, list, named->signal)});
    }

    CapturePlan& plan_;
    const SignalMap& signals_;
    // The first ODT of a layout, by the receiver's list.
    std::map<std::pair<std::size_t, std::vector<std::vector<MemoryPlace>>>, std::size_t> known_;
};

// What a list of the spec file would say, had it named what was measured.
std::vector<ListSection> sections_for(const std::vector<TableLine>& table) {
    std::vector<ListSection> sections;
    std::set<std::pair<int, std::string>> names;
    for (int number = 0; number < MAX_NUMBER_DAQ_LISTS; ++number) {
        ListSection list{0, number, fmt::format("list{}", number), "DAQ", "", {}};
        for (const TableLine& line : table)
            if (const auto* conversion = std::get_if<ConversionLine>(&line.call))
                if (conversion->daqNum == number && names.emplace(number, conversion->name).second)
                    list.measurements.push_back({0, conversion->name, conversion->name});
        if (!list.measurements.empty())
            sections.push_back(std::move(list));
    }
    return sections;
}

// Limits that are the same say nothing.
PlausibleRanges ranges_of(const SignalMap& signals) {
    PlausibleRanges ranges;
    for (const auto& [place, named] : signals)
        if (named.signal.lower < named.signal.upper)
            ranges.emplace(named.variable, PlausibleRange{named.signal.lower, named.signal.upper});
    return ranges;
}

SignalMap find_signals(const Options& options, const a2l::File& file, const WantedSlave& wanted,
                       CapturePlan& plan) {
    const auto places = places_of(plan.found);
    SignalMap signals = plan.spec.lists.empty()
                            ? all_signals(places, file, plan.notes)
                            : listed_signals(places, plan.spec, wanted, plan.notes);
    if (signals.empty())
        throw FileError(options.capture,
                        fmt::format("none of the {} measured places is {}", places.size(),
                                    plan.spec.lists.empty() ? "a MEASUREMENT of the A2L file"
                                                            : "what the spec file's lists name"));
    return signals;
}

} // namespace

CapturePlan plan_capture(const Options& options, SpecFile spec, const a2l::File& file) {
    CapturePlan plan;
    plan.spec = std::move(spec);
    plan.slave = slave_endpoint(options, file.xcp());
    const WantedSlave wanted = find_wanted(plan.spec, options.spec, file, Triggers::any);
    if (!wanted.faults.empty())
        throw wanted.faults[0];
    const auto& timestamp = file.xcp().timestamp;
    plan.found =
        read_sessions(options.capture, plan.slave, wanted.stated, timestamp && timestamp->fixed);
    plan.notes = file.warnings();
    plan.events = wanted.stated.events;
    const SignalMap signals = find_signals(options, file, wanted, plan);
    plan.ranges = ranges_of(signals);
    for (const auto& [place, named] : signals)
        plan.units.emplace(named.variable, named.signal.unit);
    TableMaker table(plan, signals);
    try {
        for (const CapturedSetUp& setUp : plan.found.setUps)
            table.place(setUp, plan.layouts.emplace_back(layout_of(setUp)));
    } catch (const xcp_master::SessionError& error) {
        throw FileError(options.capture, error.what());
    }
    if (plan.spec.lists.empty())
        plan.spec.lists = sections_for(plan.table);
    return plan;
}

std::string capture_text(const CapturePlan& plan) {
    std::string text = sessions_text(plan.found, plan.layouts, plan.events);
    for (const std::string& note : plan.notes)
        text += "note: " + note + "\n";
    return text;
}

} // namespace task
