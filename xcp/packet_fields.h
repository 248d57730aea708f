#pragma once
// What the fields of a packet are put through. A command or an answer names its fields once, in
// their order, and is written, read and told by that: see commands.h.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <vector>

namespace xcp {

// BYTE_ORDER of the slave. LEN and CTR of a message are little-endian whatever it is.
enum class ByteOrder { little, big };

// Appends fields to a packet.
class PacketWriter {
  public:
    PacketWriter(std::vector<std::uint8_t>& packet, ByteOrder order)
        : packet_(packet), order_(order) {}

    template <class Unsigned>
    void operator()(const char* /*name*/, Unsigned value) {
        for (std::size_t i = 0; i < sizeof value; ++i) {
            const std::size_t byte = order_ == ByteOrder::little ? i : sizeof value - 1 - i;
            packet_.push_back(static_cast<std::uint8_t>(std::uint64_t{value} >> 8 * byte));
        }
    }
    void operator()(const char* /*name*/, const std::vector<std::uint8_t>& rest) {
        for (const std::uint8_t byte : rest)
            packet_.push_back(byte);
    }
    void reserved(std::size_t bytes) {
        for (; bytes != 0; --bytes)
            packet_.push_back(0);
    }
    void order(ByteOrder order) { order_ = order; }

  private:
    std::vector<std::uint8_t>& packet_;
    ByteOrder order_;
};

// Takes fields from a packet, which may have more bytes than the fields need.
class PacketReader {
  public:
    PacketReader(std::span<const std::uint8_t> packet, ByteOrder order)
        : rest_(packet), order_(order) {}

    template <class Unsigned>
    void operator()(const char* /*name*/, Unsigned& value) {
        const auto bytes = take(sizeof value);
        std::uint64_t number = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i)
            number |= std::uint64_t{bytes[i]}
                      << 8 * (order_ == ByteOrder::little ? i : sizeof value - 1 - i);
        value = static_cast<Unsigned>(number);
    }
    void operator()(const char* /*name*/, std::vector<std::uint8_t>& rest) {
        rest.assign(rest_.begin(), rest_.end());
        rest_ = {};
    }
    void reserved(std::size_t bytes) { take(bytes); } // may hold anything
    void order(ByteOrder order) { order_ = order; }

    bool complete() const { return complete_; }
    std::size_t left() const { return rest_.size(); }

  private:
    std::span<const std::uint8_t> take(std::size_t bytes) {
        if (bytes > rest_.size()) {
            complete_ = false;
            rest_ = {};
            return {};
        }
        const auto taken = rest_.first(bytes);
        rest_ = rest_.subspan(bytes);
        return taken;
    }

    std::span<const std::uint8_t> rest_;
    ByteOrder order_;
    bool complete_ = true;
};

// Tells fields in words: "list 0, ODT 1".
class PacketTeller {
  public:
    template <class Unsigned>
    void operator()(const char* name, Unsigned value) {
        begin(name);
        char number[16]; // addresses and clocks are read in hexadecimal
        std::snprintf(number, sizeof number, sizeof value > 2 ? "0x%08llx" : "%llu",
                      static_cast<unsigned long long>(value));
        text_ += number;
    }
    // Text for people where it is text, else its length.
    void operator()(const char* name, const std::vector<std::uint8_t>& rest);
    void reserved(std::size_t /*bytes*/) {}
    void order(ByteOrder /*order*/) {}

    const std::string& text() const { return text_; }

  private:
    void begin(const char* name) { text_.append(text_.empty() ? "" : ", ").append(name) += ' '; }

    std::string text_;
};

inline void PacketTeller::operator()(const char* name, const std::vector<std::uint8_t>& rest) {
    if (rest.empty())
        return;
    begin(name);
    for (const std::uint8_t byte : rest)
        if (byte < ' ' || byte > '~') {
            text_ += std::to_string(rest.size()) + " bytes";
            return;
        }
    text_.append("\"").append(rest.begin(), rest.end()).append("\"");
}

} // namespace xcp
