#pragma once
// From spec file and A2L file to what a slave is to be set up with, and from the plan for it to the
// measurement table: so slave and library have one layout.

#include "a2l/a2l_file.h"
#include "spec_file.h"
#include "table_file.h"
#include "xcp_master/daq_plan.h"
#include "xcp_master/slave_properties.h"

#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace task {

// What the files say, before anybody has asked the slave.
struct WantedSlave {
    std::vector<xcp_master::WantedList> lists; // in the order of the spec file
    xcp_master::StatedProperties stated;
    std::chrono::milliseconds timeout{1000};
    std::map<std::string, a2l::Signal> signals; // by the measurement's name
    std::vector<io::FileError> faults;          // in the order of the spec file
};

// Where the A2L file is that the spec file names: in its folder, which is taken from the spec
// file's when it is relative. Throws io::FileError when it names none.
std::string a2l_path(const SpecFile& spec, const std::string& specPath);

// Whether the lists' triggers have to be event channels: to set a slave up, they have to.
enum class Triggers { events, any };

// Finds every measurement and every trigger of the spec file in the A2L file. What cannot be used
// is a fault with the line of the spec file, or of the A2L file.
WantedSlave find_wanted(const SpecFile& spec, const std::string& specPath, const a2l::File& file,
                        Triggers triggers = Triggers::events);

// How the signal's raw value becomes the variable's: with its data type, and nothing cut off.
ConversionLine conversion_line(const std::string& variable, int daqList, const a2l::Signal& signal);

// By variable, for those that have one.
std::map<std::string, std::string> units_of(const SpecFile& spec, const WantedSlave& wanted);

// The table that lays the plan out, each conversion with its data type. The plan's lists are the
// spec file's, which has no faults.
std::vector<TableLine> table_of(const xcp_master::DaqPlan& plan, const SpecFile& spec,
                                const WantedSlave& wanted);

} // namespace task
