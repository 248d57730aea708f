#pragma once
// The task's registration with the host.

#include <string>

namespace task {

// Tells, in a few words, what was registered. Throws Failure.
std::string register_task(std::string name);

} // namespace task
