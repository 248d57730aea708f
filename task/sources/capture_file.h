#pragma once
// A capture file (pcap or pcapng), read in the pace of the recording or as fast as it goes.

#include "file_source.h"
#include "io/udp_endpoint.h"

#include <atomic>
#include <memory>
#include <string>

struct pcap;

namespace task {

class CaptureFile : public DatagramFile {
  public:
    // Opens the file. Throws io::FileError.
    CaptureFile(const std::string& path, const io::UdpEndpoint& slave, bool recordedPace);

    std::string description() const override;
    void deliver_all(const std::stop_token& stop, DatagramSink& sink) override;
    std::uint64_t foreign() const override { return foreign_; }

  private:
    struct ClosePcap {
        void operator()(pcap* capture) const;
    };

    std::string path_;
    io::UdpEndpoint slave_;
    bool recordedPace_;
    std::unique_ptr<pcap, ClosePcap> capture_;
    int linkType_;
    std::atomic<std::uint64_t> foreign_ = 0;
};

} // namespace task
