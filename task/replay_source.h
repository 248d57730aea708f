#pragma once
// Frames from a text file, read by the library and handed back to it as datagrams, as fast as it
// goes.

#include "datagram_source.h"

#include <atomic>
#include <optional>
#include <string>
#include <thread>

namespace task {

class ReplaySource : public DatagramSource {
  public:
    // Opens the file, or the library's fixed one. Throws halmor_standin::FileError.
    explicit ReplaySource(const std::optional<std::string>& path);

    void start(DatagramSink sink) override;
    std::string description() const override { return "made of the frames in " + path_; }
    bool ended() const override { return ended_; }
    void stop() override;
    void check() const override; // of a record that is wrong
    Losses losses() const override { return {}; }

  private:
    void deliver_all(const std::stop_token& stop, const DatagramSink& sink);

    std::string path_;
    std::string error_; // written by the thread before ended_
    std::atomic<bool> ended_ = false;
    std::jthread thread_;
};

} // namespace task
