#pragma once
// The task's registration with the host.

#include "options.h"

#include <string>

namespace task {

// Tells, in a few words, what was registered. Throws Failure.
std::string register_task(const Options& options);

} // namespace task
