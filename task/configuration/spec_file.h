#pragma once
// The task's own reader of the spec file. The library keeps a measurement's variable only, and
// passes over what is wrong in silence; the task needs both names of each measurement line and
// names every fault before the run.

#include "io/file_error.h"

#include <cstddef>
#include <string>
#include <vector>

namespace task {

// A measurement line of a list section.
struct ListedMeasurement {
    std::size_t line; // in the file, from 1
    std::string measurement;
    std::string variable; // of the host; the measurement's name where the line has "-"
};

// One section @LIST1 to @LIST4 with a header that can be used.
struct ListSection {
    std::size_t line; // of the header
    int daqList;      // 0 to 3
    std::string name;
    std::string resource; // "DAQ" or "STIM"
    std::string trigger;
    std::vector<ListedMeasurement> measurements;
};

struct SpecFile {
    std::vector<ListSection> lists;
    bool namesServer = false;          // there is a section @XCP_SERVER
    std::string a2lFile;               // empty: there is no section for it
    std::string a2lFolder;             // as it stands there
    std::vector<io::FileError> faults; // in the order of the lines
};

// Throws io::FileError for a file that cannot be read.
SpecFile read_spec_file(const std::string& path);

} // namespace task
