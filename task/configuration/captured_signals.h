#pragma once
// Which value lies at the places in the slave's memory that a capture measures.

#include "a2l/a2l_file.h"
#include "slave_plan.h"
#include "spec_file.h"

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace task {

struct NamedSignal {
    std::string variable;
    std::size_t line; // of the spec file; 0: it names nothing
    a2l::Signal signal;
};
using SignalMap = std::map<a2l::MemoryPlace, NamedSignal>;

// Of the places those that the spec file's lists name. A note for each kind of what is left out.
SignalMap listed_signals(const std::set<a2l::MemoryPlace>& places, const SpecFile& spec,
                         const WantedSlave& wanted, std::vector<std::string>& notes);

// Every place that has a name in the A2L file; the variable gets that name.
SignalMap all_signals(const std::set<a2l::MemoryPlace>& places, const a2l::File& file,
                      std::vector<std::string>& notes);

} // namespace task
