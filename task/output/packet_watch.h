#pragma once
// Looks at every DAQ packet before the library does: whether the measurement table has its DAQ list
// and ODT, whether its length is one that the table lays out, and whether timestamps come. The
// library decodes a packet of another length as if it had no timestamp, and prints a line for each
// packet that it does not know.

#include "api_xcp_daq.h"
#include "task/sources/datagram_source.h"
#include "xcp/message.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace task {

// take() belongs to the thread that receives, doubts() follows its end; misfits() may be called
// from any thread.
class PacketWatch {
  public:
    // Reads the library's measurement table, which stays as it is from here on.
    PacketWatch();

    // Hands the payload on without the DAQ packets that the table does not have, and without
    // service requests, which the library would print a line for: as a whole, or in pieces of whole
    // messages.
    void take(std::span<const std::uint8_t> payload, const PayloadSink& library);

    // Whether anything has come that doubts() would name.
    bool misfits() const;

    // What does not fit the table, a line each.
    std::vector<std::string> doubts() const;

  private:
    static constexpr std::size_t odts_per_list = xcp::last_daq_pid + 1;

    struct Odt {
        bool decoded = false;    // the table has it
        bool stamped = false;    // its packets may carry a timestamp
        std::int64_t length = 0; // laid out, without a timestamp
        std::uint64_t otherLengths = 0;
        std::size_t firstOther = 0; // the first of them
    };
    struct List {
        bool stamped = false; // one of its ODTs is
        std::atomic<bool> came = false;
        std::atomic<bool> stampCame = false;
        std::array<Odt, odts_per_list> odts;
    };
    struct Unknown {
        int list; // -1 in a packet of a single byte
        int odt;
        std::uint64_t packets;
    };

    bool take_packet(std::span<const std::uint8_t> packet);
    void note_unknown(int list, int odt);
    bool stamps_are_missing(const List& list) const;

    std::array<List, MAX_NUMBER_DAQ_LISTS> lists_;
    std::vector<Unknown> firstUnknown_; // the first few kinds
    std::uint64_t unknown_ = 0;         // packets
    std::atomic<bool> odd_ = false;     // anything unknown or of another length came
};

} // namespace task
