#pragma once
// Datagrams from a capture file (pcap or pcapng), in the pace of the recording or as fast as it
// goes.

#include "datagram_source.h"
#include "udp_endpoint.h"

#include <atomic>
#include <memory>
#include <string>
#include <thread>

struct pcap;

namespace task {

class CaptureSource : public DatagramSource {
  public:
    // Opens the file. Throws halmor_standin::FileError.
    CaptureSource(const std::string& path, const halmor_standin::UdpEndpoint& slave,
                  bool recordedPace);
    ~CaptureSource() override;

    void start(DatagramSink sink) override;
    bool ended() const override { return ended_; }
    std::string description() const override;
    void stop() override;
    void check() const override; // of a damaged file
    Losses losses() const override;

  private:
    void deliver_all(const std::stop_token& stop, const DatagramSink& sink);

    struct ClosePcap {
        void operator()(pcap* capture) const;
    };

    std::string path_;
    halmor_standin::UdpEndpoint slave_;
    bool recordedPace_;
    std::unique_ptr<pcap, ClosePcap> capture_;
    int linkType_;
    std::string error_; // written by the thread before ended_
    std::atomic<std::uint64_t> foreign_ = 0;
    std::atomic<std::uint64_t> failures_ = 0;
    std::atomic<bool> ended_ = false;
    std::jthread thread_;
};

} // namespace task
