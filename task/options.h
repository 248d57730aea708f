#pragma once
// What the command line asks for.

#include <optional>
#include <string>

namespace task {

enum class SourceKind { listen, simulate, capture };

struct Options {
    std::string spec;
    std::string table;
    std::optional<std::string> variables;

    SourceKind source = SourceKind::listen;
    std::optional<std::string> listen; // ADDRESS:PORT
    std::string capture;
    bool recordedPace = true; // of a capture
    std::optional<double> seconds;
};

// Prints the help and gives nothing when that is what was asked for. Throws Failure.
std::optional<Options> parse_options(int argc, const char* const* argv);

} // namespace task
