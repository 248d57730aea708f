#pragma once
// What the simulated slave hands out: one answer, or a chain of DAQ messages with what they hold.

#include "a2l/a2l_file.h"

#include <cstdint>
#include <vector>

namespace simulated_slave {

struct Datagram {
    struct Value {
        const a2l::Signal* signal; // lives as long as the slave
        double physical;           // by the A2L file's conversion
    };
    std::vector<std::uint8_t> payload;
    std::vector<Value> values; // in the order of their sampling
    bool answer = false;
};

} // namespace simulated_slave
