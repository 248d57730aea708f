#pragma once
// Names of tasks on this machine. Each is held by a lock on a file of its own in /tmp, which the
// system gives up when the task ends, in whatever way.

#include <cstdint>
#include <string>

namespace halmor_standin {

// Process id of the task that holds the name; -1 when none does.
int task_of_name(const std::string& name);

// Takes the name for the rest of the process. Result: an id from 1 up, -1 when another task holds
// it or the file cannot be had.
std::int16_t take_name(const std::string& name);

} // namespace halmor_standin
