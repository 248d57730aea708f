#pragma once
// One run: the calling order of the library, from the configuration to the closing table.

#include "exit_status.h"
#include "options.h"

namespace task {

// Throws Failure; no thread goes on then.
ExitStatus run(const Options& options);

} // namespace task
