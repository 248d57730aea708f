#pragma once
// What the slave sent, out of a capture file, in the pace of the recording or as fast as it goes.

#include "capture_reader.h"
#include "file_source.h"

#include <atomic>
#include <string>

namespace task {

class CaptureFile : public DatagramFile {
  public:
    // Opens the file. Throws io::FileError.
    CaptureFile(const std::string& path, const io::UdpEndpoint& slave, bool recordedPace);

    std::string description() const override;
    void deliver_all(const std::stop_token& stop, DatagramSink& sink) override;
    std::uint64_t foreign() const override { return foreign_; }

  private:
    const std::string path_;
    const io::UdpEndpoint slave_;
    const bool recordedPace_;
    CaptureReader reader_;
    std::atomic<std::uint64_t> foreign_ = 0;
};

} // namespace task
