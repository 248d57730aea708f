#pragma once
// From the files to a run: the library configured, and a source whose datagrams it can decode.

#include "options.h"
#include "task/configuration/configuration.h"
#include "task/output/limit_watch.h"
#include "task/output/protocol_log.h"
#include "task/sources/datagram_source.h"
#include "termination_signals.h"

#include <memory>
#include <optional>

namespace task {

struct Prepared {
    Configuration configuration;
    std::unique_ptr<DatagramSource> source;
    PlausibleRanges ranges; // as the A2L file has them
};

// Reads the files, connects to a slave that is to be set up, and configures library and stand-in.
// Says on standard output what the slave is. The log may be null; not owned. Throws Failure or
// io::FileError.
Prepared prepare(api_xcp_daq& daq, const Options& options, const TerminationSignals& signals,
                 ProtocolLog* protocolLog);

} // namespace task
