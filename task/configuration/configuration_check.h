#pragma once
// --check: what the configuration holds, and what of it would not decode.

#include "configuration.h"

#include <string>
#include <vector>

namespace task {

struct CheckedConfiguration {
    std::string text;                // server and lists, and the byte layout of every ODT
    std::vector<std::string> faults; // a line, with its place, for everything that would not be set
                                     // up or decoded, or not to what its conversion says
};

// Reads the files and configures library and stand-in, without a slave: what only the slave itself
// can say is taken from the A2L file. Throws io::FileError for what cannot be read at all.
CheckedConfiguration check_configuration(api_xcp_daq& daq, const Options& options);

} // namespace task
