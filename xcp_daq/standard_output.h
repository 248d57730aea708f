#pragma once
// Diagnostics of the frame path. The transport's threads and the worker share standard output, so a
// line goes out in one insertion and is flushed.

#include <iostream>
#include <string>

namespace xcp_daq {

inline void print_line(std::string line) {
    line += '\n';
    std::cout << line << std::flush;
}

} // namespace xcp_daq
