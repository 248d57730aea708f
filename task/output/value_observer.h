#pragma once
// Sees every value on the worker's thread: looks at its sample time and records it when asked to.

#include "host/standin/variable_store.h"
#include "limit_watch.h"
#include "recorder.h"
#include "sample_time_watch.h"

namespace task {

// Observes the store for as long as it lives; nothing writes when it begins or ends.
class ValueObserver : public halmor_standin::WriteObserver {
  public:
    // Null when nothing is recorded; not owned.
    ValueObserver(Recorder* recorder, const PlausibleRanges& ranges)
        : limits_(ranges), recorder_(recorder) {
        halmor_standin::VariableStore::observe(this);
    }
    ~ValueObserver() override { halmor_standin::VariableStore::observe(nullptr); }
    ValueObserver(const ValueObserver&) = delete;
    ValueObserver& operator=(const ValueObserver&) = delete;

    void written(const halmor_standin::Variable& variable, double value,
                 const timespec& sampleTime) override {
        const auto* gap = watch_.take(variable, sampleTime);
        if (gap != nullptr && recorder_ != nullptr)
            recorder_->gap(gap->from, gap->to);
        limits_.take(variable, value, sampleTime);
        if (recorder_ != nullptr)
            recorder_->take(variable, value, sampleTime);
    }

    SampleTimeWatch& watch() { return watch_; }
    const SampleTimeWatch& watch() const { return watch_; }
    const LimitWatch& limits() const { return limits_; }

  private:
    SampleTimeWatch watch_;
    LimitWatch limits_;
    Recorder* const recorder_;
};

} // namespace task
