#pragma once
// Reads variable definitions from a text file: a line per variable with its name, its kind
// ("integer" or "real") and, optionally, the task that owns it; "#" starts a comment; blank lines
// are skipped.

#include "variable_store.h"

#include <string>
#include <vector>

namespace halmor_standin {

struct VariableDefinition {
    std::string name;
    VariableKind kind;
    std::string owner; // empty when the line names none
};

// Throws io::FileError for a file that cannot be read and for the first line that is wrong.
std::vector<VariableDefinition> read_variables_file(const std::string& path);

} // namespace halmor_standin
