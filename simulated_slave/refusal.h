#pragma once
// Thrown by whoever refuses a command, for the negative answer.

#include "xcp/error_codes.h"

namespace simulated_slave {

struct Refusal {
    xcp::Error error;
};

inline void refuse_if(bool wrong, xcp::Error error) {
    if (wrong)
        throw Refusal{error};
}

} // namespace simulated_slave
