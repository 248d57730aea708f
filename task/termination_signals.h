#pragma once
// SIGINT and SIGTERM as something the main thread waits for.

#include <chrono>

namespace task {

// One object per process, made before any other thread. The first signal asks the run to end, the
// second one not to wait for anything on the way, and the third ends the process at once, whatever
// its threads are doing. A lost reader of standard output no longer ends the process either.
class TerminationSignals {
  public:
    TerminationSignals();

    // Waits at most so long for a signal that no earlier call has answered for; true when one came.
    bool wait(std::chrono::milliseconds longest);

    // Whether any signal came, and the run is to end. Any thread.
    bool requested() const;

    // Whether nothing is to be waited for any more: after a second signal, or after hurry(), for a
    // run that has failed. Any thread.
    bool urgent() const;
    void hurry();
};

} // namespace task
