#include "sample_time_watch.h"

#include "io/single_writer.h"

namespace task {

void SampleTimeWatch::expect_gap(std::string why, bool inOrder) {
    const std::lock_guard lock(mutex_);
    gap_.why = inOrder ? "another session" : std::move(why);
    inOrder_ = inOrder;
    gapEnds_ = true;
}

const SampleTimeWatch::Gap* SampleTimeWatch::take(const halmor_standin::Variable& variable,
                                                  const timespec& sampleTime) {
    constexpr std::int64_t second = 1'000'000'000;
    constexpr std::size_t shown = 3;
    if (sampleTime.tv_sec == 0 && sampleTime.tv_nsec == 0)
        io::add(untimed_, 1);
    const Gap* const gap = gapEnds_.load(std::memory_order_acquire) ? end_gap(sampleTime) : nullptr;
    const std::int64_t step =
        (sampleTime.tv_sec - latest_.tv_sec) * second + sampleTime.tv_nsec - latest_.tv_nsec;
    if (latest_.tv_sec != 0 && gap == nullptr && (step > step_ns_ || step < -second)) {
        ++jumps_;
        if (first_.size() < shown)
            first_.push_back({variable.name(), latest_, sampleTime});
    }
    latest_ = sampleTime;
    return gap;
}

const SampleTimeWatch::Gap* SampleTimeWatch::end_gap(const timespec& sampleTime) {
    constexpr std::size_t kept = 20;
    const std::lock_guard lock(mutex_);
    gap_.from = latest_;
    gap_.to = sampleTime;
    if (firstGaps_.size() < kept)
        firstGaps_.push_back(gap_);
    gapEnds_ = false;
    gaps_ += inOrder_ ? 0 : 1;
    return &gap_;
}

} // namespace task
