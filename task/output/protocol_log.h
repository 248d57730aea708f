#pragma once
// --protocol-log: every command and what the slave says beside DAQ packets, a line each.

#include "xcp_master/command_channel.h"

#include <fstream>
#include <string>

namespace task {

class ProtocolLog {
  public:
    // Opens the file. Throws io::FileError.
    explicit ProtocolLog(const std::string& path);

    // "12.345678 > fe  DISCONNECT": seconds since the first line, the direction, bytes and meaning.
    // One thread's.
    void take(const xcp_master::TraceEvent& event);

  private:
    std::ofstream file_;
    xcp_master::Time start_{};
};

} // namespace task
