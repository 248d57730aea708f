#pragma once
// Brings spec file, variables and measurement table into the library and the stand-in host.

#include "a2l/a2l_file.h"
#include "api_xcp_daq.h"
#include "io/udp_endpoint.h"
#include "spec_file.h"
#include "table_file.h"
#include "task/options.h"

#include <map>
#include <string>
#include <vector>

namespace task {

// The files as they were read; of a table by the A2L file only those conversions have a type that
// need it.
struct Configuration {
    SpecFile spec;
    std::vector<TableLine> table;
    std::map<std::string, std::string> units = {}; // by variable, as far as the A2L file has them
};

// Reads the spec file, for the task and into the library. Throws io::FileError; of the file's
// faults the first one, unless they are to be checked.
SpecFile load_spec(api_xcp_daq& daq, const Options& options);

// Brings the variables into the stand-in and the table into the library. Throws io::FileError.
Configuration configure(const Options& options, SpecFile spec, std::vector<TableLine> table);

// The slave's address and port, as the spec file has them. Throws io::FileError.
io::UdpEndpoint server_endpoint(const Options& options);

// The same, but where the spec file has none, as the A2L file has them. Throws io::FileError.
io::UdpEndpoint slave_endpoint(const Options& options, const a2l::Xcp& xcp);

} // namespace task
