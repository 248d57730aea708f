#include "progress.h"

#include "live_view.h"

#include <chrono>
#include <iostream>

namespace task {

namespace {

using Clock = std::chrono::steady_clock;

void draw_table(const std::function<bool()>& goesOn, const std::function<RunCounts()>& counts) {
    constexpr std::chrono::milliseconds interval{200};
    LiveView view;
    auto next = Clock::now();
    while (goesOn())
        if (Clock::now() >= next) {
            view.draw(counts());
            next += interval;
        }
    view.draw(counts());
}

void print_lines(const std::function<bool()>& goesOn, const std::function<RunCounts()>& counts) {
    constexpr std::chrono::seconds interval{1};
    RunCounts before;
    auto next = Clock::now() + interval;
    while (goesOn())
        if (Clock::now() >= next) {
            const RunCounts now = counts();
            std::cout << progress_line(now, before) << std::flush;
            before = now;
            next += interval;
        }
}

} // namespace

void show_progress(bool quiet, const std::function<bool()>& goesOn,
                   const std::function<RunCounts()>& counts) {
    if (quiet)
        while (goesOn()) {
        }
    else if (LiveView::possible())
        draw_table(goesOn, counts);
    else
        print_lines(goesOn, counts);
}

} // namespace task
