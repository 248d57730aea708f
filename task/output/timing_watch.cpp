#include "timing_watch.h"

#include <algorithm>
#include <chrono>
#include <cmath>

namespace task {

namespace {

constexpr std::chrono::seconds window_length{1};
constexpr double least_jump = 0.2; // seconds: a datagram is not on its way for so long

double seconds_between(Arrival from, Arrival to) {
    return std::chrono::duration<double>(to - from).count();
}

} // namespace

std::int64_t TimingWatch::Ends::span_ns() const {
    const std::int64_t own = last_ns - first_ns;
    const double came = seconds_between(firstArrival, lastArrival);
    const bool jumped = came > 0 && std::abs(static_cast<double>(own) / 1e9 - came) > least_jump;
    return jumped ? std::llround(came * 1e9) : own;
}

void TimingWatch::take(std::size_t list, std::int64_t time_ns, Arrival arrival) {
    if (!ends_)
        ends_ = Ends{time_ns, time_ns, arrival, arrival};
    ends_->first_ns = std::min(ends_->first_ns, time_ns);
    ends_->last_ns = std::max(ends_->last_ns, time_ns);
    ends_->lastArrival = arrival;
    ++samples_[list];
    if (arrival != Arrival{})
        compare_clocks(time_ns, arrival);
}

void TimingWatch::compare_clocks(std::int64_t time_ns, Arrival arrival) {
    const std::int64_t ahead =
        time_ns - std::chrono::nanoseconds(arrival.time_since_epoch()).count();
    if (window_ && arrival - window_->begin >= window_length)
        close_window();
    if (!window_)
        window_ = Window{arrival, arrival, ahead};
    else if (ahead > window_->ahead_ns)
        window_ = Window{window_->begin, arrival, ahead};
}

void TimingWatch::close_window() {
    if (!window_)
        return;
    const Window window = *window_;
    window_.reset();
    const double step =
        lastWindow_ ? static_cast<double>(window.ahead_ns - lastWindow_->ahead_ns) / 1e9 : 0.0;
    if (std::abs(step) > least_jump) {
        ++clocks_.jumps;
        if (std::abs(step) > std::abs(clocks_.largestJump))
            clocks_.largestJump = step;
        close_session(); // drift is what goes on between jumps
    }
    if (!firstWindow_)
        firstWindow_ = window;
    lastWindow_ = window;
    const double x = seconds_between(firstWindow_->arrival, window.arrival);
    const double y = static_cast<double>(window.ahead_ns - firstWindow_->ahead_ns) / 1e9;
    Regression& r = regression_;
    r.n += 1;
    r.x += x;
    r.y += y;
    r.xx += x * x;
    r.xy += x * y;
}

void TimingWatch::close_session() {
    sumXX_ += regression_.sum_xx();
    sumXY_ += regression_.sum_xy();
    if (firstWindow_)
        clocks_.seconds += seconds_between(firstWindow_->arrival, lastWindow_->arrival);
    regression_ = {};
    firstWindow_.reset();
    lastWindow_.reset();
}

void TimingWatch::begin_session() {
    close_window();
    close_session();
    spans_ = spans();
    ends_.reset();
}

TimingWatch::Spans TimingWatch::spans() const {
    Spans spans = spans_;
    if (ends_) {
        spans.nanoseconds += ends_->span_ns();
        ++spans.sessions;
    }
    return spans;
}

TimingWatch::Clocks TimingWatch::clocks() const {
    TimingWatch all = *this;
    all.close_window();
    all.close_session();
    if (all.sumXX_ > 0)
        all.clocks_.drift_ppm = all.sumXY_ / all.sumXX_ * 1e6;
    return all.clocks_;
}

} // namespace task
