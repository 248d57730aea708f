#pragma once
// --check: what the configuration holds, and what of it would not decode.

#include "measurement_table.h"
#include "options.h"

#include <string>
#include <vector>

namespace task {

// The library's report and the byte layout of every ODT.
std::string configuration_text();

// A line, with its place, for everything that would not decode or always give 0.
std::vector<std::string> find_faults(const std::vector<TableLine>& table, const Options& options);

} // namespace task
