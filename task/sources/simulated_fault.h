#pragma once
// What may go wrong between the simulated slave and the master, to see what a run says about it.

#include "task/enum_table.h"

namespace task {

enum class SimulatedFault { lost, repeated, late, jump };

struct SimulatedFaultText {
    const char* name; // on the command line
    SimulatedFault fault;
    const char* meaning;
};

// All of them; each happens once in datagrams_per_fault datagrams, the jump in as many cycles.
constexpr SimulatedFaultText simulated_faults[] = {
    {"lost", SimulatedFault::lost, "a datagram is lost"},
    {"repeated", SimulatedFault::repeated, "a datagram comes twice"},
    {"late", SimulatedFault::late, "a datagram comes after the one that was sent next"},
    {"jump", SimulatedFault::jump, "the slave's clock jumps two seconds ahead"},
};
static_assert(has_row_for_each(simulated_faults, &SimulatedFaultText::fault, SimulatedFault::jump));
constexpr unsigned datagrams_per_fault = 100;

} // namespace task
