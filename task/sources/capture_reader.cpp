#include "capture_reader.h"

#include "io/file_error.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>

namespace task {

namespace {

using io::FileError;
using io::UdpEndpoint;
using Bytes = std::span<const std::uint8_t>;

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

// The tags of 802.1Q and 802.1ad, of which there may be several.
bool is_vlan(std::uint16_t type) {
    return type == 0x8100 || type == 0x88A8;
}

// The IPv4 packet in a captured frame; empty when there is none.
Bytes ipv4_packet(Bytes frame, const LinkLayer& link) {
    constexpr std::uint16_t ipv4 = 0x0800;
    constexpr std::size_t tag = 4; // bytes, the type of what follows last
    std::size_t start = link.headerSize;
    if (frame.size() < start)
        return {};
    if (!link.protocolAt)
        return frame.subspan(start);
    std::uint16_t type = big_endian_16(frame, *link.protocolAt);
    for (; is_vlan(type) && frame.size() >= start + tag; start += tag)
        type = big_endian_16(frame, start + tag - 2);
    return type == ipv4 ? frame.subspan(start) : Bytes{};
}

UdpEndpoint endpoint(const std::uint8_t* address, std::uint16_t port) {
    UdpEndpoint result;
    std::copy_n(address, 4, reinterpret_cast<std::uint8_t*>(&result.address));
    result.port = port;
    return result;
}

// The packet is whole, or cut off by the recording.
std::optional<CapturedDatagram> udp_datagram(Bytes packet) {
    constexpr std::size_t udp_header_size = 8;
    if (packet.size() < 20 || packet[9] != IPPROTO_UDP)
        return std::nullopt;
    const std::size_t headerSize = std::size_t{4} * (packet[0] & 0x0FU);
    if (packet.size() < headerSize + udp_header_size)
        return std::nullopt;
    const Bytes udp = packet.subspan(headerSize);
    const std::size_t length = big_endian_16(udp, 4);
    if (length < udp_header_size)
        return std::nullopt;
    // Shorter than its length when the capture cut it; longer when the frame was padded.
    return CapturedDatagram{
        endpoint(packet.data() + 12, big_endian_16(udp, 0)),
        endpoint(packet.data() + 16, big_endian_16(udp, 2)),
        udp.subspan(udp_header_size, std::min(length, udp.size()) - udp_header_size)};
}

} // namespace

void CaptureReader::ClosePcap::operator()(pcap* capture) const {
    pcap_close(capture);
}

// With nanoseconds libpcap brings the times of every interface to them, whatever they are in.
CaptureReader::CaptureReader(const std::string& path) : path_(path) {
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

bool CaptureReader::next(CapturedFrame& frame) {
    const LinkLayer& link = *find_link_layer(linkType_);
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    int result = 0;
    while ((result = pcap_next_ex(capture_.get(), &header, &data)) == 1) {
        const std::uint64_t fragmentsBefore = fragments_.waiting();
        const Bytes packet = fragments_.take(ipv4_packet({data, header->caplen}, link));
        ++number_;
        if (fragments_.waiting() > fragmentsBefore)
            continue;
        frame.number = number_;
        frame.recorded = Arrival(std::chrono::seconds(header->ts.tv_sec) +
                                 std::chrono::nanoseconds(header->ts.tv_usec));
        frame.datagram = udp_datagram(packet);
        return true;
    }
    if (result == PCAP_ERROR)
        throw FileError(path_, pcap_geterr(capture_.get()));
    return false;
}

} // namespace task
