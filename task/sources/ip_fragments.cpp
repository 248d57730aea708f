#include "ip_fragments.h"

#include <algorithm>

namespace task {

namespace {

constexpr std::size_t least_header = 20;
constexpr std::size_t most_packets = 256; // that wait: what is lost in a recording never comes

std::size_t word_at(IpFragments::Bytes packet, std::size_t at) {
    return static_cast<std::size_t>(packet[at] << 8 | packet[at + 1]);
}

} // namespace

IpFragments::Bytes IpFragments::take(Bytes packet) {
    if (packet.size() < least_header || packet[0] >> 4 != 4)
        return {};
    const std::size_t place = word_at(packet, 6);
    const bool more = (place & 0x2000) != 0;
    const std::size_t offset = (place & 0x1FFF) * 8;
    if (!more && offset == 0)
        return packet;
    ++taken_;
    const std::size_t headerSize = std::size_t{4} * (packet[0] & 0x0FU);
    const std::size_t size = word_at(packet, 2);
    if (headerSize < least_header || size <= headerSize || size > packet.size())
        return {}; // cut off by the recording
    Key key{packet[4], packet[5], packet[9]};
    std::copy_n(packet.begin() + 12, 8, key.begin() + 3);
    Packet& waiting = packets_[key];
    keep(waiting, offset, !more, packet.first(headerSize),
         packet.subspan(headerSize, size - headerSize)); // behind it the frame may be padded
    if (!complete(waiting)) {
        forget_oldest();
        return {};
    }
    whole_ = std::move(waiting.header);
    whole_[6] = whole_[7] = 0;
    for (const auto& [at, part] : waiting.parts)
        whole_.insert(whole_.end(), part.begin(), part.end());
    used_ += waiting.parts.size();
    packets_.erase(key);
    return whole_;
}

// A fragment of other bytes at the same place belongs to a later packet whose identification is the
// same.
void IpFragments::keep(Packet& packet, std::size_t offset, bool isLast, Bytes header, Bytes part) {
    const auto known = packet.parts.find(offset);
    if (known != packet.parts.end() &&
        !std::equal(known->second.begin(), known->second.end(), part.begin(), part.end()))
        packet = {};
    if (packet.parts.empty())
        packet.since = taken_;
    packet.parts[offset].assign(part.begin(), part.end());
    if (offset == 0)
        packet.header.assign(header.begin(), header.end());
    if (isLast)
        packet.size = offset + part.size();
}

bool IpFragments::complete(const Packet& packet) const {
    std::size_t end = 0;
    for (const auto& [offset, part] : packet.parts)
        if (offset == end)
            end += part.size();
        else
            return false;
    return packet.size != 0 && end == packet.size;
}

void IpFragments::forget_oldest() {
    if (packets_.size() <= most_packets)
        return;
    packets_.erase(std::min_element(packets_.begin(), packets_.end(), [](auto& a, auto& b) {
        return a.second.since < b.second.since;
    }));
}

} // namespace task
