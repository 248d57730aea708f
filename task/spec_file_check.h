#pragma once
// The library passes over what is wrong in a spec file and tells it in its log at most. A task that
// measures nothing because of a slip is no help, so this names the first line that is wrong.

#include <string>

namespace task {

// Throws halmor_standin::FileError.
void check_spec_file(const std::string& path);

} // namespace task
