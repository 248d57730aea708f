#include "capture_file.h"

#include "interruptible_sleep.h"
#include "io/file_error.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <optional>
#include <span>

namespace task {

namespace {

using io::FileError;
using io::UdpEndpoint;
using Bytes = std::span<const std::uint8_t>;
using Clock = std::chrono::steady_clock;

// Where the network-layer header starts, and where the type of the network layer stands before it.
struct LinkLayer {
    int type;
    std::size_t headerSize;
    std::optional<std::size_t> protocolAt;
};
constexpr LinkLayer link_layers[] = {
    {DLT_EN10MB, 14, 12}, {DLT_LINUX_SLL, 16, 14}, {DLT_LINUX_SLL2, 20, 0}, {DLT_RAW, 0, {}},
    {DLT_IPV4, 0, {}},    {DLT_NULL, 4, {}},       {DLT_LOOP, 4, {}},
};

const LinkLayer* find_link_layer(int type) {
    const auto* found = std::find_if(std::begin(link_layers), std::end(link_layers),
                                     [&](const auto& layer) { return layer.type == type; });
    return found == std::end(link_layers) ? nullptr : found;
}

std::uint16_t big_endian_16(Bytes bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

// The IPv4 packet in a captured frame; empty when there is none.
Bytes ipv4_packet(Bytes frame, const LinkLayer& link) {
    constexpr std::uint16_t ipv4 = 0x0800;
    constexpr std::uint16_t vlan = 0x8100;
    std::size_t start = link.headerSize;
    std::size_t protocolAt = link.protocolAt.value_or(0);
    if (frame.size() < start)
        return {};
    while (link.type == DLT_EN10MB && frame.size() >= start + 4 &&
           big_endian_16(frame, protocolAt) == vlan) {
        protocolAt += 4;
        start += 4;
    }
    if (link.protocolAt && big_endian_16(frame, protocolAt) != ipv4)
        return {};
    return frame.subspan(start);
}

struct Datagram {
    UdpEndpoint source;
    Bytes payload;
};

// A whole UDP datagram; fragments are none.
std::optional<Datagram> udp_datagram(Bytes packet) {
    constexpr std::size_t udp_header_size = 8;
    if (packet.size() < 20 || packet[0] >> 4 != 4 || packet[9] != IPPROTO_UDP)
        return std::nullopt;
    const bool fragment = (big_endian_16(packet, 6) & 0x3FFF) != 0;
    const std::size_t headerSize = std::size_t{4} * (packet[0] & 0x0FU);
    if (fragment || packet.size() < headerSize + udp_header_size)
        return std::nullopt;
    Datagram datagram;
    std::copy_n(packet.data() + 12, 4, reinterpret_cast<std::uint8_t*>(&datagram.source.address));
    const Bytes udp = packet.subspan(headerSize);
    datagram.source.port = big_endian_16(udp, 0);
    const std::size_t length = big_endian_16(udp, 4);
    if (length < udp_header_size)
        return std::nullopt;
    // Shorter than its length when the capture cut it; longer when the frame was padded.
    datagram.payload = udp.subspan(udp_header_size, std::min(length, udp.size()) - udp_header_size);
    return datagram;
}

// The file was opened for nanoseconds: libpcap then has them in the field for microseconds.
std::chrono::nanoseconds recorded_at(const pcap_pkthdr& packet) {
    return std::chrono::seconds(packet.ts.tv_sec) + std::chrono::nanoseconds(packet.ts.tv_usec);
}

// Waits until each packet's time has come, counted from the first one.
class Pace {
  public:
    // False when told to stop while waiting.
    bool wait_for(const pcap_pkthdr& packet, const std::stop_token& stop) {
        const auto recorded = recorded_at(packet);
        if (!begun_)
            shift_ = Clock::now().time_since_epoch() - recorded;
        begun_ = true;
        return sleep_until(Clock::time_point(recorded + shift_), stop);
    }

  private:
    bool begun_ = false;
    std::chrono::nanoseconds shift_{}; // from the recording's clock to ours
};

} // namespace

void CaptureFile::ClosePcap::operator()(pcap* capture) const {
    pcap_close(capture);
}

CaptureFile::CaptureFile(const std::string& path, const UdpEndpoint& slave, bool recordedPace)
    : path_(path), slave_(slave), recordedPace_(recordedPace) {
    char error[PCAP_ERRBUF_SIZE] = {};
    capture_.reset(
        pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, error));
    if (!capture_) {
        const std::string cause = error;
        throw FileError(path,
                        cause.starts_with(path + ": ") ? cause.substr(path.size() + 2) : cause);
    }
    linkType_ = pcap_datalink(capture_.get());
    if (find_link_layer(linkType_) == nullptr)
        throw FileError(path, fmt::format("link type {} is not supported", linkType_));
}

std::string CaptureFile::description() const {
    return "from " + to_text(slave_) + " in " + path_;
}

void CaptureFile::deliver_all(const std::stop_token& stop, DatagramSink& sink) {
    const LinkLayer& link = *find_link_layer(linkType_);
    Pace pace;
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    int result = 0;
    while ((result = pcap_next_ex(capture_.get(), &header, &data)) == 1) {
        if (stop.stop_requested() || (recordedPace_ && !pace.wait_for(*header, stop)))
            return;
        const auto datagram = udp_datagram(ipv4_packet({data, header->caplen}, link));
        if (datagram && datagram->source == slave_)
            sink.take(datagram->payload, Arrival(recorded_at(*header)));
        else
            ++foreign_;
    }
    if (result == PCAP_ERROR)
        throw FileError(path_, pcap_geterr(capture_.get()));
}

} // namespace task
