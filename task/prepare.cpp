#include "prepare.h"

#include "exit_status.h"
#include "task/configuration/capture_plan.h"
#include "task/configuration/slave_plan.h"
#include "task/output/set_up_report.h"
#include "task/sources/file_source.h"
#include "task/sources/make_source.h"
#include "task/sources/session_file.h"
#include "task/sources/simulated_source.h"

#include <fmt/format.h>

#include <iostream>
#include <map>
#include <system_error>

namespace task {

namespace {

SlaveSettings settings(const WantedSlave& wanted, const TerminationSignals& signals,
                       ProtocolLog* protocolLog) {
    SlaveSettings settings{wanted.timeout,
                           {},
                           [&signals] { return signals.requested(); },
                           [&signals] { return signals.urgent(); }};
    if (protocolLog != nullptr)
        settings.trace = [protocolLog](const xcp_master::TraceEvent& event) {
            protocolLog->take(event);
        };
    return settings;
}

std::multimap<std::string, std::string> variables_of(const SpecFile& spec) {
    std::multimap<std::string, std::string> variables;
    for (const ListSection& list : spec.lists)
        for (const ListedMeasurement& each : list.measurements)
            variables.emplace(each.measurement, each.variable);
    return variables;
}

// Limits that are the same say nothing.
PlausibleRanges ranges_of(const SpecFile& spec, const WantedSlave& wanted) {
    PlausibleRanges ranges;
    for (const ListSection& list : spec.lists)
        for (const ListedMeasurement& each : list.measurements)
            if (const a2l::Signal& signal = wanted.signals.at(each.measurement);
                signal.lower < signal.upper)
                ranges.emplace(each.variable, PlausibleRange{signal.lower, signal.upper});
    return ranges;
}

std::unique_ptr<SlaveSource> make_slave_source(const Options& options, const SpecFile& spec,
                                               const a2l::File& file, SlaveSettings settings) {
    if (options.source == SourceKind::simulate)
        return std::make_unique<SimulatedSource>(file, options.faults, variables_of(spec),
                                                 std::move(settings));
    try {
        return std::make_unique<SlaveSource>(slave_endpoint(options, file.xcp()),
                                             std::move(settings));
    } catch (const std::system_error& error) {
        throw Failure(ExitStatus::network, error.what());
    }
}

// The slave's lists are numbered in their order, whatever sections they stand in.
void number_lists(SpecFile& spec) {
    int number = 0;
    for (ListSection& list : spec.lists)
        list.daqList = number++;
}

void show(const std::string& text) {
    std::cout << text << std::flush;
}

// What is left of the A2L file stays small: a file of 100 MB is not kept during a run.
Prepared prepare_slave(const Options& options, SpecFile spec, const TerminationSignals& signals,
                       ProtocolLog* protocolLog) {
    const a2l::File file(a2l_path(spec, options.spec));
    const WantedSlave wanted = find_wanted(spec, options.spec, file);
    if (!wanted.faults.empty())
        throw wanted.faults[0];
    for (const std::string& remark : file.warnings())
        show("note: " + remark + "\n");
    auto source = make_slave_source(options, spec, file, settings(wanted, signals, protocolLog));
    show(fmt::format("connecting to the slave {}\n", source->way()));
    const auto slave = source->connect(wanted.stated, wanted.lists);
    const auto limits = limits_of(slave);
    const xcp_master::DaqPlan& plan = source->make_plan(wanted.lists);
    show(properties_text(slave) + plan_text(plan, limits, slave.events));
    std::vector<TableLine> table = table_of(plan, spec, wanted);
    number_lists(spec);
    PlausibleRanges ranges = ranges_of(spec, wanted);
    auto units = units_of(spec, wanted);
    Configuration configuration = configure(options, std::move(spec), std::move(table));
    configuration.units = std::move(units);
    return {std::move(configuration), std::move(source), std::move(ranges)};
}

// What was read of the sessions is told before anything is decoded.
Prepared prepare_capture(const Options& options, SpecFile spec) {
    const a2l::File file(a2l_path(spec, options.spec));
    CapturePlan plan = plan_capture(options, std::move(spec), file);
    show(capture_text(plan));
    Configuration configuration = configure(options, std::move(plan.spec), std::move(plan.table));
    configuration.units = std::move(plan.units);
    auto sessions =
        std::make_unique<SessionFile>(options.capture, plan.slave, options.recordedPace,
                                      std::move(plan.found.sessions), std::move(plan.layouts));
    return {std::move(configuration), std::make_unique<FileSource>(std::move(sessions)),
            std::move(plan.ranges)};
}

} // namespace

Prepared prepare(api_xcp_daq& daq, const Options& options, const TerminationSignals& signals,
                 ProtocolLog* protocolLog) {
    SpecFile spec = load_spec(daq, options);
    if (options.sets_up())
        return prepare_slave(options, std::move(spec), signals, protocolLog);
    if (!options.has_table())
        return prepare_capture(options, std::move(spec));
    Configuration configuration =
        configure(options, std::move(spec), read_measurement_table(options.table));
    return {std::move(configuration), make_source(options), {}};
}

} // namespace task
