#pragma once
// Puts IPv4 packets that were sent in fragments together again.

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace task {

class IpFragments {
  public:
    using Bytes = std::span<const std::uint8_t>;

    // A whole IPv4 packet comes back as it is. Of a fragment comes what it completes, with the
    // header of the first one, or nothing while others are missing. Valid until the next call.
    Bytes take(Bytes packet);

    // Fragments that wait for others, or whose others never came.
    std::uint64_t waiting() const { return taken_ - used_; }

  private:
    using Key = std::array<std::uint8_t, 11>; // addresses, identification, protocol
    struct Packet {
        std::uint64_t since = 0;                                // in fragments taken
        std::map<std::size_t, std::vector<std::uint8_t>> parts; // by offset, without header
        std::vector<std::uint8_t> header;                       // of the first
        std::size_t size = 0;                                   // 0: the last one has not come
    };

    void keep(Packet& packet, std::size_t offset, bool isLast, Bytes header, Bytes part);
    bool complete(const Packet& packet) const;
    void forget_oldest();

    std::map<Key, Packet> packets_;
    std::vector<std::uint8_t> whole_;
    std::uint64_t taken_ = 0;
    std::uint64_t used_ = 0;
};

} // namespace task
