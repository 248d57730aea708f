#pragma once
// The form of a slave's DAQ packets, and the way out of it into the receiver's own: ODT byte, DAQ
// byte, on the first ODT of a sample a timestamp of 4 bytes in nanoseconds, little-endian, then the
// entries and nothing behind them.

#include "daq_plan.h"
#include "slave_properties.h"
#include "stamp_clock.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace xcp_master {

class DtoForm {
  public:
    // The plan that the slave was set up with, and of each list what the slave answered to its
    // selection: the number of its first ODT where numbers are absolute. Throws SessionError when
    // ODT numbers of two lists overlap.
    DtoForm(const DaqProperties& slave, const DaqPlan& plan,
            const std::vector<std::uint8_t>& firstPids);

    // The same messages with every DAQ packet in the receiver's form: the payload itself when they
    // are in it already, else bytes that are valid until the next call. What is no packet of the
    // plan gets the form too, under its own numbers, for whoever counts such packets. One thread's.
    //
    // `arrival`, of any clock, is the time of samples whose slave has no timestamps, and tells the
    // turns of short ones.
    std::span<const std::uint8_t> take(std::span<const std::uint8_t> payload, Time arrival);

    // Packets in which the slave has told that it lost samples. Any thread.
    std::uint64_t overloads() const { return overloads_; }

    // Samples whose time could not be told, since their timestamp may have turned more often than
    // was noticed. Any thread.
    std::uint64_t untold() const { return clock_ ? clock_->untold() : 0; }

  private:
    struct Place {
        std::uint8_t list;
        std::uint8_t odt;
        std::size_t length; // of the entries
    };
    struct Packet {
        std::uint8_t odt;
        std::uint8_t list;
        std::optional<std::uint32_t> timestamp_ns;
        std::span<const std::uint8_t> entries;
    };

    bool needs_nothing(std::span<const std::uint8_t> payload) const;
    bool is_exact(std::span<const std::uint8_t> packet) const;
    std::optional<Packet> read(std::span<const std::uint8_t> packet, Time arrival);
    std::uint32_t time_of(std::uint8_t list, std::span<const std::uint8_t> stamp, Time arrival);
    std::uint8_t list_of(std::span<const std::uint8_t> packet) const;
    void append(std::uint16_t ctr, const Packet& packet);
    void append(std::uint16_t ctr, std::span<const std::uint8_t> packet);

    const DaqProperties slave_;
    const DaqLimits limits_;
    const bool own_;                                // the receiver's form, but perhaps for padding
    const std::uint64_t tick_ns_;                   // of a timestamp that needs no more; else 0
    std::optional<StampClock> clock_;               // of any other timestamp
    std::vector<std::vector<std::size_t>> lengths_; // by list and ODT
    std::array<std::optional<Place>, 256> absolute_{}; // by ODT number
    std::vector<std::uint8_t> converted_;
    std::atomic<std::uint64_t> overloads_ = 0;
};

} // namespace xcp_master
