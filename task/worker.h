#pragma once
// The library's worker with decoding on, for as long as the object lives.

#include "api_xcp_daq.h"

namespace task {

class Worker {
  public:
    explicit Worker(api_xcp_daq& daq) : daq_(daq) {
        daq_.startWorkerThreads();
        api_xcp_daq::enableDAQProcessing();
    }
    // Decoding goes off after the worker has ended: the other way round its last frame would be
    // discarded now and then.
    ~Worker() {
        daq_.stopWorkerThreads();
        api_xcp_daq::disableDAQProcessing();
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

  private:
    api_xcp_daq& daq_;
};

} // namespace task
