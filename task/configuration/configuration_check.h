#pragma once
// --check: what the configuration holds, and what of it would not decode.

#include "configuration.h"

#include <string>
#include <vector>

namespace task {

// Server and lists, and the byte layout of every ODT.
std::string configuration_text(const Configuration& configuration);

// A line, with its place, for everything that would not decode, or not to what its conversion says.
std::vector<std::string> find_faults(const Configuration& configuration, const Options& options);

} // namespace task
