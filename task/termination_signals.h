#pragma once
// SIGINT and SIGTERM as something the main thread waits for.

#include <chrono>

namespace task {

// From its construction on the two signals no longer end the process, in no thread that is started
// after it; a lost reader of standard output does not either.
class TerminationSignals {
  public:
    TerminationSignals();

    // Whether one of the signals came, waiting for it at most so long.
    bool wait(std::chrono::milliseconds longest);
};

} // namespace task
