#include "slave_plan.h"

#include "api_xcp_daq.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace task {

namespace {

using halmor_standin::RawNumber;
using io::FileError;
using xcp_master::DaqPlan;
using xcp_master::WantedList;

std::string folder_of(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

// ---- what the A2L file says of the slave ----

xcp_master::StatedProperties stated_properties(const a2l::Xcp& xcp) {
    xcp_master::StatedProperties stated;
    stated.maxDto = xcp.maxDto;
    if (xcp.byteOrder)
        stated.order =
            *xcp.byteOrder == a2l::ByteOrder::big ? xcp::ByteOrder::big : xcp::ByteOrder::little;
    stated.addressGranularity = xcp.addressGranularity;
    for (const a2l::Event& event : xcp.events)
        stated.events.push_back({event.number, event.name, event.cycle_ns});
    if (!xcp.hasDaq)
        return stated;
    xcp_master::DaqProperties daq;
    daq.dynamic = xcp.dynamic;
    daq.identificationField = static_cast<xcp_master::IdentificationField>(xcp.identificationField);
    daq.minDaq = xcp.minDaq;
    daq.overloadInPid = xcp.overloadInPid;
    daq.entryGranularity = xcp.entryGranularity;
    daq.maxEntrySize = xcp.maxEntrySize;
    if (xcp.timestamp) {
        daq.timestampSize = xcp.timestamp->size;
        daq.unit_ps = xcp.timestamp->unit_ps;
        daq.ticksPerUnit = xcp.timestamp->ticks;
    }
    stated.daq = daq;
    return stated;
}

// ---- what the spec file asks for ----

class WantedFinder {
  public:
    WantedFinder(const SpecFile& spec, std::string specPath, const a2l::File& file,
                 Triggers triggers)
        : spec_(spec), specPath_(std::move(specPath)), file_(file), triggers_(triggers) {}

    WantedSlave find() {
        wanted_.stated = stated_properties(file_.xcp());
        if (file_.xcp().timeouts[0].count() > 0)
            wanted_.timeout = file_.xcp().timeouts[0];
        for (const ListSection& list : spec_.lists)
            if (!list.trigger.empty()) // the header is a fault of the spec file
                wanted_.lists.push_back(find_list(list));
        return std::move(wanted_);
    }

  private:
    void report(std::size_t line, const std::string& cause) {
        wanted_.faults.emplace_back(specPath_, line, cause);
    }

    WantedList find_list(const ListSection& list) {
        if (list.resource != "DAQ")
            report(list.line, list.name + ": only lists of resource DAQ can be set up");
        if (list.measurements.empty())
            report(list.line, list.name + ": no measurements");
        WantedList wanted{list.name, find_event(list), {}};
        std::set<std::string> variables;
        for (const ListedMeasurement& each : list.measurements) {
            const auto taken = taken_.emplace(each.variable, &each).first->second;
            if (!variables.insert(each.variable).second)
                report(each.line, each.variable + " is in the list twice");
            else if (taken->measurement != each.measurement)
                report(each.line, fmt::format("{} takes {} already, in line {}", each.variable,
                                              taken->measurement, taken->line));
            find_signal(each, wanted);
        }
        return wanted;
    }

    std::uint16_t find_event(const ListSection& list) {
        if (triggers_ == Triggers::any)
            return 0;
        std::vector<std::string> names;
        for (const a2l::Event& event : file_.xcp().events) {
            if (event.name == list.trigger || event.shortName == list.trigger) {
                if (event.packed)
                    report(list.line, "event channel " + event.name +
                                          " does packed DAQ only, which cannot be received");
                return event.number;
            }
            names.push_back(event.name);
        }
        report(list.line, names.empty()
                              ? "the A2L file has no event channels"
                              : fmt::format("no event channel {} in the A2L file; there are {}",
                                            list.trigger, fmt::join(names, ", ")));
        return 0;
    }

    void find_signal(const ListedMeasurement& each, WantedList& list) {
        try {
            const auto signal = file_.find(each.measurement);
            if (!signal)
                return report_missing(each);
            list.values.push_back({each.measurement, signal->address, signal->addressExtension,
                                   static_cast<std::uint8_t>(a2l::size_of(signal->type))});
            wanted_.signals.emplace(each.measurement, *signal);
        } catch (const FileError& fault) {
            report(each.line, fault.what());
        }
    }

    void report_missing(const ListedMeasurement& each) {
        const auto near = file_.near_names(each.measurement);
        report(each.line,
               fmt::format("no measurement {} in the A2L file{}", each.measurement,
                           near.empty() ? std::string()
                                        : fmt::format("; near: {}", fmt::join(near, ", "))));
    }

    const SpecFile& spec_;
    const std::string specPath_;
    const a2l::File& file_;
    const Triggers triggers_;
    std::map<std::string, const ListedMeasurement*> taken_; // by variable
    WantedSlave wanted_;
};

// ---- the table ----

// A floating-point number has no mask; one that takes every bit says nothing.
RawNumber number_of(const a2l::Signal& signal) {
    const RawNumber number{*halmor_standin::raw_type_named(a2l::name_of(signal.type))};
    const std::uint64_t all = halmor_standin::every_bit >> (64 - 8 * a2l::size_of(signal.type));
    const std::uint64_t mask = signal.bitMask.value_or(all) & all;
    return mask == all || is_real(number.type) ? number : RawNumber{number.type, mask};
}

// What all raw values of the type become: nothing is cut off.
std::pair<double, double> limits_of(const RawNumber& number, const a2l::Signal& signal) {
    if (is_real(number.type))
        return {-HUGE_VAL, HUGE_VAL};
    const int bits = 8 * static_cast<int>(size_of(number.type));
    const double count = std::ldexp(1.0, bits);
    const double least = is_signed(number.type) ? -count / 2 : 0.0;
    const double greatest = least + count - (bits == 64 ? 0 : 1); // a double has no 2^64 - 1
    return std::minmax(
        {least * signal.factor + signal.offset, greatest * signal.factor + signal.offset});
}

} // namespace

ConversionLine conversion_line(const std::string& variable, int daqList,
                               const a2l::Signal& signal) {
    const RawNumber number = number_of(signal);
    const auto [lower, upper] = limits_of(number, signal);
    return {variable,
            daqList,
            0,
            signal.factor,
            signal.offset,
            0,
            signal.byteOrder == a2l::ByteOrder::little ? 1 : 0,
            lower,
            upper,
            number};
}

std::string a2l_path(const SpecFile& spec, const std::string& specPath) {
    if (spec.a2lFile.empty())
        throw FileError(specPath, "no section @A2L_FILE");
    std::string folder = spec.a2lFolder;
    if (!folder.empty() && !folder.ends_with('/'))
        folder += '/';
    if (!folder.starts_with('/'))
        folder = folder_of(specPath) + folder;
    return folder + spec.a2lFile;
}

WantedSlave find_wanted(const SpecFile& spec, const std::string& specPath, const a2l::File& file,
                        Triggers triggers) {
    return WantedFinder(spec, specPath, file, triggers).find();
}

std::map<std::string, std::string> units_of(const SpecFile& spec, const WantedSlave& wanted) {
    std::map<std::string, std::string> units;
    for (const ListSection& list : spec.lists)
        for (const ListedMeasurement& each : list.measurements)
            if (const std::string& unit = wanted.signals.at(each.measurement).unit; !unit.empty())
                units.emplace(each.variable, unit);
    return units;
}

std::vector<TableLine> table_of(const DaqPlan& plan, const SpecFile& spec,
                                const WantedSlave& wanted) {
    std::vector<TableLine> table;
    for (std::size_t list = 0; list < plan.lists.size(); ++list) {
        auto listed = spec.lists[list].measurements.begin(); // in the order of the entries
        const int daqList = static_cast<int>(list);
        const auto& odts = plan.lists[list].odts;
        for (std::size_t odt = 0; odt < odts.size(); ++odt)
            for (std::size_t i = 0; i < odts[odt].size(); ++i, ++listed) {
                const auto& signal = wanted.signals.at(listed->measurement);
                const MeasurementLine place{listed->variable,      daqList,
                                            static_cast<int>(odt), static_cast<int>(i),
                                            odts[odt][i].size,     MODE_TIMESTAMP};
                table.push_back({listed->line, place});
                table.push_back({listed->line, conversion_line(listed->variable, daqList, signal)});
            }
    }
    return table;
}

} // namespace task
