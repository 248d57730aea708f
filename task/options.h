#pragma once
// What the command line asks for.

#include "simulated_slave/fault.h"

#include <optional>
#include <set>
#include <string>

namespace task {

// Without a measurement table the task sets the slave up itself, or reads in the capture how
// another master has.
enum class SourceKind { slave, simulate, listen, capture, replay };

struct Options {
    std::string spec;
    std::string table; // empty: laid out by the A2L file
    std::optional<std::string> variables;

    SourceKind source = SourceKind::slave;
    std::optional<std::string> listen; // ADDRESS:PORT
    std::set<simulated_slave::Fault> faults;
    std::string capture;
    bool recordedPace = true;          // of a capture
    std::optional<std::string> replay; // the library's fixed file when there is none
    std::optional<double> seconds;
    int hold = 10; // milliseconds that a sample is held at most, for the order of several lists

    std::string name = "xcp_daq_task"; // to register under
    std::optional<std::string> log;
    std::optional<std::string> measurementLog;
    std::optional<std::string> protocolLog;
    std::optional<std::string> saveTable;
    bool dump = false;
    std::optional<std::string> record; // CSV file, or .mf4
    bool quiet = false;                // nothing is shown while it runs
    bool strict = false;               // a run that cannot be trusted has failed
    bool check = false;                // the configuration, instead of a run

    bool sets_up() const { return source == SourceKind::slave || source == SourceKind::simulate; }
    bool has_table() const { return !table.empty(); }
};

// Prints the help or the version and gives nothing when that is what was asked for. Throws Failure.
std::optional<Options> parse_options(int argc, const char* const* argv);

} // namespace task
