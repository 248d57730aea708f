#pragma once
// A sleep that a stop request ends.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stop_token>

namespace task {

// False when told to stop before the time has come.
inline bool sleep_until(std::chrono::steady_clock::time_point time, const std::stop_token& stop) {
    std::mutex mutex;
    std::condition_variable_any wakeUp;
    std::unique_lock lock(mutex);
    wakeUp.wait_until(lock, stop, time, [] { return false; });
    return !stop.stop_requested();
}

} // namespace task
