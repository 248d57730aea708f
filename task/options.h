#pragma once
// What the command line asks for.

#include "task/sources/simulated_fault.h"

#include <optional>
#include <set>
#include <string>

namespace task {

enum class SourceKind { listen, simulate, capture, replay };

struct Options {
    std::string spec;
    std::string table;
    std::optional<std::string> variables;

    SourceKind source = SourceKind::listen;
    std::optional<std::string> listen; // ADDRESS:PORT
    std::set<SimulatedFault> faults;   // of the simulated slave
    std::string capture;
    bool recordedPace = true;          // of a capture
    std::optional<std::string> replay; // the library's fixed file when there is none
    std::optional<double> seconds;

    std::string name = "xcp_daq_task"; // to register under
    std::optional<std::string> log;
    std::optional<std::string> measurementLog;
    bool dump = false;
    std::optional<std::string> record; // CSV file
    bool quiet = false;                // nothing is shown while it runs
    bool strict = false;               // a run that cannot be trusted has failed
    bool check = false;                // the configuration, instead of a run
};

// Prints the help or the version and gives nothing when that is what was asked for. Throws Failure.
std::optional<Options> parse_options(int argc, const char* const* argv);

} // namespace task
