#include "task_services.h"

#include "halmor_runtime.h"

#include <atomic>

namespace {

constexpr int realtime_clock = 5;

std::atomic<int> priority = 0;

} // namespace

int halmor_standin::recorded_priority() {
    return priority;
}

int setprio(int /*who*/, int newPriority) {
    return priority.exchange(newPriority);
}

int SrrClockGettime(int clock, timespec* now) {
    return clock == realtime_clock ? clock_gettime(CLOCK_REALTIME, now) : -1;
}
