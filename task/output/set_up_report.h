#pragma once
// What a slave has said of itself and what it is set up with, in a few lines.

#include "xcp_master/slave_properties.h"

#include <string>

namespace task {

std::string properties_text(const xcp_master::SlaveProperties& slave);

// A line for each list: ODTs, values, and the bytes per second that they will send.
std::string plan_text(const xcp_master::DaqPlan& plan, const xcp_master::DaqLimits& limits,
                      const std::vector<xcp_master::EventChannel>& events);

} // namespace task
