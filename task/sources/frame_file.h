#pragma once
// A text file of frames, read by the library and handed back to it as datagrams, as fast as it
// goes.

#include "file_source.h"

#include <optional>
#include <string>

namespace task {

class FrameFile : public DatagramFile {
  public:
    // Opens the file, or the library's fixed one. Throws io::FileError.
    explicit FrameFile(const std::optional<std::string>& path);

    std::string description() const override { return "made of the frames in " + path_; }
    void deliver_all(const std::stop_token& stop, DatagramSink& sink) override;

  private:
    std::string path_;
};

} // namespace task
