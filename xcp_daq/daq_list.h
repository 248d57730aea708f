#pragma once
// From a DAQ list number to its record.

#include "api_xcp_daq.h"

#include <cstddef>

namespace xcp_daq {

// Null for a number outside 0 to 3.
inline xcpDAQList* find_daq_list(int number) {
    if (number < 0 || number >= MAX_NUMBER_DAQ_LISTS)
        return nullptr;
    return &appData.daqList[static_cast<std::size_t>(number)];
}

} // namespace xcp_daq
