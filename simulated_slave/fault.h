#pragma once
// What may go wrong on the way from the simulated slave to the master, and with its clock, to see
// what a run says about it.

namespace simulated_slave {

enum class Fault { lost, repeated, late, jump, power };

struct FaultText {
    const char* name; // on a command line
    Fault fault;
    const char* meaning;
};

// All of them. What befalls a datagram happens once in datagrams_per_fault DAQ datagrams, the jump
// in as many times at which lists are sampled. Answers are spared.
constexpr FaultText fault_texts[] = {
    {"lost", Fault::lost, "a datagram is lost"},
    {"repeated", Fault::repeated, "a datagram comes twice"},
    {"late", Fault::late, "a datagram comes after the one that was sent next"},
    {"jump", Fault::jump, "the slave's clock jumps two seconds ahead"},
    {"power", Fault::power, "the slave is switched off ten seconds after each start, for three"},
};
constexpr unsigned datagrams_per_fault = 100;

} // namespace simulated_slave
