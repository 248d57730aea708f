#include "termination_signals.h"

#include <pthread.h>
#include <signal.h>

#include <ctime>

namespace task {

namespace {

sigset_t watched() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

} // namespace

TerminationSignals::TerminationSignals() {
    const sigset_t set = watched();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

bool TerminationSignals::wait(std::chrono::milliseconds longest) {
    const sigset_t set = watched();
    const timespec time{longest.count() / 1000, longest.count() % 1000 * 1000000};
    return sigtimedwait(&set, nullptr, &time) > 0;
}

} // namespace task
