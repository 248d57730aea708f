#pragma once
// Sees every value on the worker's thread: looks at its sample time and records it when asked to.

#include "host/standin/variable_store.h"
#include "recorder.h"
#include "sample_time_watch.h"

namespace task {

// Observes the store for as long as it lives; nothing writes when it begins or ends.
class ValueObserver : public halmor_standin::WriteObserver {
  public:
    // Null when nothing is recorded; not owned.
    explicit ValueObserver(Recorder* recorder) : recorder_(recorder) {
        halmor_standin::VariableStore::observe(this);
    }
    ~ValueObserver() override { halmor_standin::VariableStore::observe(nullptr); }
    ValueObserver(const ValueObserver&) = delete;
    ValueObserver& operator=(const ValueObserver&) = delete;

    void written(const halmor_standin::Variable& variable, double value,
                 const timespec& sampleTime) override {
        watch_.take(variable, sampleTime);
        if (recorder_ != nullptr)
            recorder_->take(variable, value, sampleTime);
    }

    const SampleTimeWatch& watch() const { return watch_; }

  private:
    SampleTimeWatch watch_;
    Recorder* const recorder_;
};

} // namespace task
