#pragma once
// Brings spec file, variables and measurement table into the library and the stand-in host.

#include "api_xcp_daq.h"
#include "io/udp_endpoint.h"
#include "spec_file.h"
#include "table_file.h"
#include "task/options.h"

#include <vector>

namespace task {

// The files as they were read.
struct Configuration {
    SpecFile spec;
    std::vector<TableLine> table;
};

// Throws io::FileError; of a spec file's faults, the first one, unless they are to be checked.
Configuration configure(api_xcp_daq& daq, const Options& options);

// The slave's address and port, as the spec file has them. Throws io::FileError.
io::UdpEndpoint server_endpoint(const Options& options);

} // namespace task
