#pragma once
// From the sessions of a capture to one measurement table for all of them: what was measured, by
// the names of the A2L file, or of it what the spec file names. Set-ups that lay a DAQ list out in
// the same way share its place in the table; another layout has ODT numbers of its own behind.

#include "a2l/a2l_file.h"
#include "io/udp_endpoint.h"
#include "spec_file.h"
#include "table_file.h"
#include "task/options.h"
#include "task/output/limit_watch.h"
#include "task/sources/captured_sessions.h"
#include "task/sources/session_file.h"
#include "xcp_master/daq_plan.h"

#include <map>
#include <string>
#include <vector>

namespace task {

struct CapturePlan {
    io::UdpEndpoint slave;
    CapturedSessions found;
    std::vector<SessionLayout> layouts; // of the set-ups
    xcp_master::DaqPlan receiver;       // the table, by DAQ list and ODT
    std::vector<TableLine> table;
    SpecFile spec;                                // its lists name all variables
    PlausibleRanges ranges;                       // of the variables
    std::map<std::string, std::string> units;     // likewise
    std::vector<std::string> notes;               // a line each: what is passed over, and why
    std::vector<xcp_master::EventChannel> events; // as the A2L file has them
};

// Reads the capture's commands. The spec file has been read into the library; its faults, and what
// its lists name that the A2L file does not have, are thrown as the first of them. Throws
// io::FileError.
CapturePlan plan_capture(const Options& options, SpecFile spec, const a2l::File& file);

// What the capture holds, in lines for people.
std::string capture_text(const CapturePlan& plan);

} // namespace task
