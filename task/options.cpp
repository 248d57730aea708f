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
    for (const auto& text : simulated_slave::fault_texts)
        names.emplace_back(text.name);
    return names;
}

std::string faults_help() {
    std::string help = fmt::format("Once in {} datagrams of the simulated slave:",
                                   simulated_slave::datagrams_per_fault);
    for (const auto& text : simulated_slave::fault_texts)
        help += fmt::format("\n{}: {}", text.name, text.meaning);
    return help;
}

// The options with what the command line has in another form.
class CommandLine {
  public:
    CommandLine() {
        add_files();
        add_sources();
        add_outputs();
        app_.add_option("--name", options_.name, "Name to register under")->capture_default_str();
        app_.add_flag("--check", options_.check,
                      "Show the configuration and what of it would not decode, and end");
        app_.set_version_flag("--version", "xcp_daq_task " XCP_DAQ_VERSION);
        app_.footer(exit_status_help());
    }

    // Nothing when the help or the version was asked for, and has been printed.
    std::optional<Options> parse(int argc, const char* const* argv) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::CallForHelp&) {
            std::cout << app_.help();
            return std::nullopt;
        } catch (const CLI::CallForVersion& version) {
            std::cout << version.what() << '\n';
            return std::nullopt;
        } catch (const CLI::ParseError& error) {
            throw Failure(ExitStatus::options, fmt::format("{} (see --help)", error.what()));
        }
        take_source();
        return options_;
    }

  private:
    void add_files() {
        app_.add_option("SPEC", options_.spec, "Spec file: server, DAQ lists and their variables")
            ->required();
        table_ = app_.add_option("--table", options_.table,
                                 "Measurement table: where each value lies in the packets of a "
                                 "slave that somebody else sets up (default: the A2L file that "
                                 "SPEC names, and the task sets the slave up, or reads in a "
                                 "capture how another master has)");
        app_.add_option("--variables", options_.variables,
                        "Variables of the host (default: those that the spec file lists, all "
                        "real)");
    }

    void add_sources() {
        auto* sources = app_.add_option_group("Source of the datagrams");
        sources
            ->add_option("--listen", options_.listen,
                         "ADDRESS:PORT to receive on (default with a table: 127.0.0.1 and the "
                         "server's port)")
            ->needs(table_);
        simulate_ =
            sources
                ->add_flag("--simulate", simulated_, "A slave that is simulated from the A2L file")
                ->excludes(table_);
        capture_ =
            sources->add_option("--pcap", options_.capture,
                                "A capture file of the slave's datagrams; without a table it has "
                                "the master's commands too, by which they are decoded");
        replay_ = sources
                      ->add_option("--replay", replayFile_,
                                   "A file of frames (default: the library's file in /specs)")
                      ->expected(0, 1)
                      ->needs(table_);
        sources->require_option(0, 1);
        app_.add_option("--pace", pace_, "Pace of a capture: as recorded, or as fast as it goes")
            ->check(CLI::IsMember({"recorded", "max"}))
            ->capture_default_str()
            ->needs(capture_);
        app_.add_option("--faults", faults_, faults_help())
            ->delimiter(',')
            ->allow_extra_args(false)
            ->check(CLI::IsMember(fault_names()))
            ->needs(simulate_);
        app_.add_option("--hold", options_.hold,
                        "Milliseconds for which samples are held to put several lists into order; "
                        "0: not at all")
            ->check(CLI::Range(0, 10'000))
            ->capture_default_str();
        app_.add_option("--seconds", options_.seconds, "End after so many seconds")
            ->check([](const std::string& text) {
                return CLI::PositiveNumber(text).empty() ? "" : "a number above 0 is expected";
            });
    }

    void add_outputs() {
        app_.add_option("--record", options_.record,
                        "Write every value with its sample time into this file: a measurement "
                        "file (ASAM MDF 4.1) when its name ends in .mf4, otherwise CSV");
        app_.add_flag("--quiet", options_.quiet,
                      "Show nothing while it runs (default: a live table on a terminal, else a "
                      "line a second)");
        app_.add_flag("--strict", options_.strict,
                      "End with status 2 when the run cannot be trusted");
        app_.add_flag("--dump", options_.dump,
                      "Write every DAQ packet into a file in /tmp, whose name is printed");
        app_.add_option("--log", options_.log, "Write the library's diagnostic log into this file");
        app_.add_option("--protocol-log", options_.protocolLog,
                        "Write every command and answer in words into this file")
            ->excludes(table_)
            ->excludes(capture_);
        app_.add_option("--save-table", options_.saveTable,
                        "Write the measurement table of this run into this file, for --table");
        app_.add_option("--measurement-log", options_.measurementLog,
                        "Write a line per measurement and conversion into this file, which can "
                        "serve as a measurement table");
    }

    void take_source() {
        if (*table_)
            options_.source = SourceKind::listen;
        if (simulated_)
            options_.source = SourceKind::simulate;
        if (*capture_)
            options_.source = SourceKind::capture;
        if (*replay_)
            options_.source = SourceKind::replay;
        if (!replayFile_.empty())
            options_.replay = replayFile_;
        options_.recordedPace = pace_ == "recorded";
        for (const auto& text : simulated_slave::fault_texts)
            if (std::find(faults_.begin(), faults_.end(), text.name) != faults_.end())
                options_.faults.insert(text.fault);
    }

    CLI::App app_{"Receives the DAQ packets of an XCP slave and keeps the latest value of every "
                  "measurement, with its sample time.",
                  "xcp_daq_task"};
    Options options_;
    CLI::Option* table_ = nullptr;
    CLI::Option* simulate_ = nullptr;
    CLI::Option* capture_ = nullptr;
    CLI::Option* replay_ = nullptr;
    bool simulated_ = false;
    std::string replayFile_;
    std::string pace_ = "recorded";
    std::vector<std::string> faults_;
};

} // namespace

std::optional<Options> parse_options(int argc, const char* const* argv) {
    return CommandLine().parse(argc, argv);
}

} // namespace task
