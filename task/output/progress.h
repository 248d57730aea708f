#pragma once
// What a run shows while it goes on: a live table on a terminal, elsewhere a line a second, or
// nothing.

#include "report.h"

#include <functional>

namespace task {

// Shows `counts` from time to time for as long as `goesOn`, which waits a moment at each call.
void show_progress(bool quiet, const std::function<bool()>& goesOn,
                   const std::function<RunCounts()>& counts);

} // namespace task
