#pragma once
// Brings spec file, variables and measurement table into the library and the stand-in host.

#include "api_xcp_daq.h"
#include "measurement_table.h"
#include "options.h"
#include "udp_endpoint.h"

#include <vector>

namespace task {

// Gives the lines of the measurement table. Throws halmor_standin::FileError.
std::vector<TableLine> configure(api_xcp_daq& daq, const Options& options);

// The slave's address and port, as the spec file has them. Throws halmor_standin::FileError.
halmor_standin::UdpEndpoint server_endpoint(const Options& options);

} // namespace task
