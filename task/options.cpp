#include "options.h"

#include "exit_status.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <vector>

namespace task {

namespace {

std::string exit_status_help() {
    std::string text = "Exit status:\n";
    for (const auto& [status, meaning] : exit_statuses)
        text += fmt::format("  {}  {}\n", static_cast<int>(status), meaning);
    return text;
}

std::vector<std::string> fault_names() {
    std::vector<std::string> names;
    for (const auto& text : simulated_faults)
        names.emplace_back(text.name);
    return names;
}

std::string faults_help() {
    std::string help =
        fmt::format("Once in {} datagrams of the simulated slave:", datagrams_per_fault);
    for (const auto& text : simulated_faults)
        help += fmt::format("\n{}: {}", text.name, text.meaning);
    return help;
}

} // namespace

std::optional<Options> parse_options(int argc, const char* const* argv) {
    Options options;
    CLI::App app("Receives the DAQ packets of an XCP slave and keeps the latest value of every "
                 "measurement, with its sample time.",
                 "xcp_daq_task");
    app.add_option("SPEC", options.spec, "Spec file: server, DAQ lists and their variables")
        ->required();
    app.add_option("--table", options.table,
                   "Measurement table: where each value lies in the packets")
        ->required();
    app.add_option("--variables", options.variables,
                   "Variables of the host (default: those that the spec file lists, all real)");

    auto* sources = app.add_option_group("Source of the datagrams");
    sources->add_option("--listen", options.listen,
                        "ADDRESS:PORT to receive on (default: 127.0.0.1 and the "
                        "server's port)");
    bool simulated = false;
    auto* simulate = sources->add_flag("--simulate", simulated,
                                       "A simulated slave that sends what the table lays out");
    auto* capture =
        sources->add_option("--pcap", options.capture, "A capture file of the slave's datagrams");
    std::string replayFile;
    auto* replay = sources
                       ->add_option("--replay", replayFile,
                                    "A file of frames (default: the library's file in /specs)")
                       ->expected(0, 1);
    sources->require_option(0, 1);
    std::string pace = "recorded";
    app.add_option("--pace", pace, "Pace of a capture: as recorded, or as fast as it goes")
        ->check(CLI::IsMember({"recorded", "max"}))
        ->capture_default_str()
        ->needs(capture);
    std::vector<std::string> faults;
    app.add_option("--faults", faults, faults_help())
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::IsMember(fault_names()))
        ->needs(simulate);
    app.add_option("--seconds", options.seconds, "End after so many seconds")
        ->check(CLI::PositiveNumber);

    app.add_option("--name", options.name, "Name to register under")->capture_default_str();
    app.add_option("--priority", options.priority, "Priority to ask the host for")
        ->check(CLI::Range(1, 19));
    app.add_option("--log", options.log, "Write the library's diagnostic log into this file");
    app.add_option("--measurement-log", options.measurementLog,
                   "Write a line per measurement and conversion into this file, which can serve as "
                   "a measurement table");
    app.add_option("--record", options.record,
                   "Write every value with its sample time into this CSV file");
    app.add_flag("--quiet", options.quiet,
                 "Show nothing while it runs (default: a live table on a terminal, else a line a "
                 "second)");
    app.add_flag("--strict", options.strict, "End with status 2 when anything was lost");
    app.add_flag("--dump", options.dump,
                 "Write every DAQ packet into a file in /tmp, whose name is printed");
    app.add_flag("--check", options.check,
                 "Show the configuration and what of it would not decode, and end");
    app.set_version_flag("--version", "xcp_daq_task " XCP_DAQ_VERSION);
    app.footer(exit_status_help());

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return std::nullopt;
    } catch (const CLI::CallForVersion& version) {
        std::cout << version.what() << '\n';
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitStatus::options, fmt::format("{} (see --help)", error.what()));
    }
    if (simulated)
        options.source = SourceKind::simulate;
    if (*capture)
        options.source = SourceKind::capture;
    if (*replay)
        options.source = SourceKind::replay;
    for (const auto& text : simulated_faults)
        if (std::find(faults.begin(), faults.end(), text.name) != faults.end())
            options.faults.insert(text.fault);
    if (!replayFile.empty())
        options.replay = replayFile;
    options.recordedPace = pace == "recorded";
    return options;
}

} // namespace task
