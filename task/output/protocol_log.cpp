#include "protocol_log.h"

#include "io/file_error.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace task {

ProtocolLog::ProtocolLog(const std::string& path) : file_(path) {
    if (!file_.is_open())
        throw io::FileError(path, std::strerror(errno));
}

// Written through at once: it is read when something has gone wrong.
void ProtocolLog::take(const xcp_master::TraceEvent& event) {
    if (start_ == xcp_master::Time{})
        start_ = event.time;
    const std::chrono::duration<double> seconds = event.time - start_;
    file_ << fmt::format("{:.6f} {} {:02x}  {}\n", seconds.count(), event.sent ? '>' : '<',
                         fmt::join(event.packet, " "), event.meaning)
          << std::flush;
}

} // namespace task
