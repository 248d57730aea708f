#pragma once
// The source that the command line asks for.

#include "datagram_source.h"
#include "task/options.h"

#include <memory>

namespace task {

// The library and the stand-in are configured. Throws Failure or io::FileError.
std::unique_ptr<DatagramSource> make_source(const Options& options);

} // namespace task
