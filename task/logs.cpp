#include "logs.h"

#include "api_xcp_daq.h"
#include "io/file_error.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace task {

static void open(std::ofstream& file, const std::optional<std::string>& path) {
    if (!path)
        return;
    file.open(*path);
    if (!file.is_open())
        throw io::FileError(*path, std::strerror(errno));
}

Logs::Logs(const Options& options) {
    open(appData.logFile, options.log);
    open(appData.measurementFile, options.measurementLog);
    appData.logEnabled = options.log || options.measurementLog;
}

Logs::~Logs() {
    api_xcp_daq::stoplog();
}

} // namespace task
