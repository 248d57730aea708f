#include "sample_time_watch.h"

#include "io/single_writer.h"

namespace task {

void SampleTimeWatch::take(const halmor_standin::Variable& variable, const timespec& sampleTime) {
    constexpr std::int64_t second = 1'000'000'000;
    constexpr std::size_t shown = 3;
    if (sampleTime.tv_sec == 0 && sampleTime.tv_nsec == 0)
        io::add(untimed_, 1);
    const std::int64_t step =
        (sampleTime.tv_sec - latest_.tv_sec) * second + sampleTime.tv_nsec - latest_.tv_nsec;
    if (latest_.tv_sec != 0 && (step > second || step < -second)) {
        ++jumps_;
        if (first_.size() < shown)
            first_.push_back({variable.name(), latest_, sampleTime});
    }
    latest_ = sampleTime;
}

} // namespace task
