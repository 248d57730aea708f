#pragma once
// What the command line of xcp_simulated_slave asks for.

#include "fault.h"

#include <optional>
#include <set>
#include <stdexcept>
#include <string>

namespace simulated_slave {

struct Options {
    std::string a2lFile;
    std::optional<std::string> listen; // ADDRESS:PORT
    std::set<Fault> faults;
    std::optional<double> seconds;
};

enum class ExitStatus { success = 0, options = 1, file = 3, network = 4, internal = 5 };

// One line for the user, without the program's name.
class Failure : public std::runtime_error {
  public:
    Failure(ExitStatus status, const std::string& line)
        : std::runtime_error(line), status_(status) {}
    ExitStatus status() const { return status_; }

  private:
    ExitStatus status_;
};

// Prints the help or the version and gives nothing when that is what was asked for. Throws Failure.
std::optional<Options> parse_options(int argc, const char* const* argv);

} // namespace simulated_slave
