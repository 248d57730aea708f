#pragma once
// How a run ended, as the shell sees it, and the error that carries such an end.

#include "enum_table.h"

#include <stdexcept>
#include <string>

namespace task {

enum class ExitStatus {
    success = 0,
    options = 1,
    values_missing = 2,
    file = 3,
    network = 4,
    internal = 5,
    registration = 6,
    would_not_decode = 7,
};

struct ExitStatusText {
    ExitStatus status;
    const char* meaning;
};

// All of them, for --help.
constexpr ExitStatusText exit_statuses[] = {
    {ExitStatus::success, "the run ended as it should"},
    {ExitStatus::options, "wrong options"},
    {ExitStatus::values_missing,
     "values did not arrive, or, with --strict, the run cannot be trusted"},
    {ExitStatus::file, "a file is missing, wrong, or cannot be read or written"},
    {ExitStatus::network, "the network cannot be used as asked, or failed while receiving"},
    {ExitStatus::internal, "the task itself failed: out of memory or threads"},
    {ExitStatus::registration, "the host refused the registration"},
    {ExitStatus::would_not_decode, "--check found something that would not decode"},
};
static_assert(has_row_for_each(exit_statuses, &ExitStatusText::status,
                               ExitStatus::would_not_decode));

// One line for the user, without the task's name.
class Failure : public std::runtime_error {
  public:
    Failure(ExitStatus status, const std::string& line)
        : std::runtime_error(line), status_(status) {}
    ExitStatus status() const { return status_; }

  private:
    ExitStatus status_;
};

} // namespace task
