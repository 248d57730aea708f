#pragma once
// The library's two logs: opened here, written by the library, closed through its stoplog.

#include "options.h"

namespace task {

// An api_xcp_daq object has been constructed before, and no other thread runs while this one is
// destroyed.
class Logs {
  public:
    // Throws io::FileError.
    explicit Logs(const Options& options);
    ~Logs();
    Logs(const Logs&) = delete;
    Logs& operator=(const Logs&) = delete;
};

} // namespace task
