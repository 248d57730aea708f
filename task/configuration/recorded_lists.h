#pragma once
// Which variables the DAQ lists bring, for a recording that keeps the lists apart.

#include "configuration.h"
#include "host/standin/variable_store.h"

#include <string>
#include <vector>

namespace task {

struct RecordedVariable {
    const halmor_standin::Variable* variable; // of the store
    std::string unit;                         // empty: not known
};

struct RecordedList {
    std::string name;
    std::string trigger; // empty: not known
    std::vector<RecordedVariable> variables;
};

// The lists that bring any variable, in the order of their numbers. A variable that several bring
// is in the first one.
std::vector<RecordedList> recorded_lists(const Configuration& configuration);

} // namespace task
