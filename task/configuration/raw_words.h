#pragma once
// Values whose data type or conversion the library does not carry: the library receives them as
// words of 1, 2 or 4 bytes, and the variable, which knows their raw form, makes the value of them.
// A line of the table stands for one entry of the library's table or, of 8 bytes, for two.

#include "host/standin/variable_store.h"
#include "table_file.h"

#include <map>
#include <string>
#include <vector>

namespace task {

using VariableKinds = std::map<std::string, halmor_standin::VariableKind>; // by name
using RawForms = std::map<std::string, halmor_standin::RawForm>;           // by variable

// Takes the type from every conversion that the library keeps exact without it.
void leave_to_library(std::vector<TableLine>& table, const VariableKinds& variables);

// The forms of those variables whose conversion has a type. Throws io::FileError, with `path`, when
// two DAQ lists have the variable in different forms.
RawForms raw_forms(const std::vector<TableLine>& table, const VariableKinds& variables,
                   const std::string& path);

// The calls of the library for the table: with words in the place of every value in `forms`.
std::vector<TableLine> library_calls(const std::vector<TableLine>& table, const RawForms& forms);

} // namespace task
