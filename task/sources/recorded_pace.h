#pragma once
// The pace of a recording: waits until each frame's time has come, counted from the first one.

#include "datagram_source.h"
#include "interruptible_sleep.h"

#include <optional>
#include <stop_token>

namespace task {

class RecordedPace {
  public:
    // False when told to stop while waiting.
    bool wait_for(Arrival recorded, const std::stop_token& stop) {
        if (!shift_)
            shift_ = std::chrono::steady_clock::now() - recorded;
        return sleep_until(recorded + *shift_, stop);
    }

  private:
    std::optional<Arrival::duration> shift_; // from the recording's clock to ours
};

} // namespace task
