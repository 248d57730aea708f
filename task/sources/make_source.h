#pragma once
// The source of datagrams from a slave that somebody else has set up.

#include "datagram_source.h"
#include "task/options.h"

#include <memory>

namespace task {

// The library and the stand-in are configured. Throws Failure or io::FileError.
std::unique_ptr<DatagramSource> make_source(const Options& options);

} // namespace task
