#pragma once
// The UDP datagrams of a capture file (pcap or pcapng), one after the other.

#include "datagram_source.h"
#include "io/udp_endpoint.h"
#include "ip_fragments.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

struct pcap;

namespace task {

struct CapturedDatagram {
    io::UdpEndpoint source;
    io::UdpEndpoint destination;
    std::span<const std::uint8_t> payload;
};

struct CapturedFrame {
    std::uint64_t number = 0; // in the file, from 1; of a fragmented datagram the last one's
    Arrival recorded;
    std::optional<CapturedDatagram> datagram; // empty: the frame holds none
};

class CaptureReader {
  public:
    // Opens the file. Throws io::FileError.
    explicit CaptureReader(const std::string& path);

    // The next frame, valid until the next call; frames that only hold a part of a datagram are
    // passed over. False at the end. Throws io::FileError for what is damaged.
    bool next(CapturedFrame& frame);

    // Fragments of datagrams that are not whole.
    std::uint64_t fragments_left() const { return fragments_.waiting(); }

  private:
    struct ClosePcap {
        void operator()(pcap* capture) const;
    };

    const std::string path_;
    std::unique_ptr<pcap, ClosePcap> capture_;
    int linkType_;
    IpFragments fragments_;
    std::uint64_t number_ = 0;
};

} // namespace task
