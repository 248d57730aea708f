#pragma once
// The recorder of the file that --record names.

#include "file_writer.h"
#include "recorder.h"
#include "task/configuration/configuration.h"

#include <functional>
#include <memory>
#include <string>

namespace task {

// Throws io::FileError when no file can be written there, before anything depends on it. Writes
// nothing.
void check_recordable(const std::string& path);

// A measurement file when the name ends in .mf4, in any case, and comma-separated values otherwise.
// Once `urgent` gives true nothing waits any more; any thread may ask it. Throws io::FileError.
std::unique_ptr<Recorder> make_recorder(const std::string& path, const Configuration& configuration,
                                        NoRoom noRoom, std::function<bool()> urgent);

} // namespace task
