#pragma once
// What a slave has said of itself and what it is set up with, in a few lines.

#include "task/sources/captured_sessions.h"
#include "task/sources/session_file.h"
#include "xcp_master/slave_properties.h"

#include <string>

namespace task {

std::string properties_text(const xcp_master::SlaveProperties& slave);

// A line for each list: ODTs, values, and the bytes per second that they will send.
std::string plan_text(const xcp_master::DaqPlan& plan, const xcp_master::DaqLimits& limits,
                      const std::vector<xcp_master::EventChannel>& events);

// What the commands of a capture have set up, each set-up once, and the sessions with it. The
// layouts are those of the set-ups; the events as the A2L file has them.
std::string sessions_text(const CapturedSessions& found, const std::vector<SessionLayout>& layouts,
                          const std::vector<xcp_master::EventChannel>& events);

} // namespace task
