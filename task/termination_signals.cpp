#include "termination_signals.h"

#include <semaphore.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

namespace task {

namespace {

// A signal handler reaches nothing but globals, and of those these are safe in it.
sem_t signals_waiting;
std::atomic<int> signals_so_far = 0;
std::atomic<bool> failed = false;
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void take_signal(int number) {
    constexpr int last_resort = 3;
    const int error = errno;
    if (++signals_so_far == last_resort)
        _exit(128 + number);
    sem_post(&signals_waiting);
    errno = error;
}

} // namespace

TerminationSignals::TerminationSignals() {
    sem_init(&signals_waiting, 0, 0);
    struct sigaction action {};
    action.sa_handler = take_signal;
    action.sa_flags = SA_RESTART; // nobody's reading or writing is to fail because of it
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

bool TerminationSignals::wait(std::chrono::milliseconds longest) {
    const auto end = std::chrono::steady_clock::now().time_since_epoch() + longest;
    const auto seconds = std::chrono::floor<std::chrono::seconds>(end);
    const timespec time{seconds.count(), std::chrono::nanoseconds(end - seconds).count()};
    int result = 0;
    do
        result = sem_clockwait(&signals_waiting, CLOCK_MONOTONIC, &time);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

bool TerminationSignals::requested() const {
    return signals_so_far >= 1;
}

bool TerminationSignals::urgent() const {
    return failed || signals_so_far >= 2;
}

void TerminationSignals::hurry() {
    failed = true;
}

} // namespace task
