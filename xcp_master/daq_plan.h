#pragma once
// Which measurement lies where: what a slave is set up with, and its receiver as well, so that the
// two cannot disagree.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace xcp_master {

// A value in the slave's memory.
struct MeasuredValue {
    std::string name;
    std::uint32_t address = 0;
    std::uint8_t extension = 0;
    std::uint8_t size = 0; // bytes
    bool operator==(const MeasuredValue&) const = default;
};

using Odt = std::vector<MeasuredValue>;

struct DaqList {
    std::string name;        // of the list, for messages
    std::uint16_t event = 0; // that samples it
    std::vector<Odt> odts;
    bool operator==(const DaqList&) const = default;
};

struct DaqPlan {
    std::vector<DaqList> lists;   // their numbers in the receiver are their places
    bool stamped = true;          // the slave stamps the first ODT of each sample
    std::uint16_t firstDaq = 0;   // number of the first list in the slave
    std::size_t maxEntrySize = 0; // bytes, of the slave's ODT entries; 0: not limited
    bool operator==(const DaqPlan&) const = default;
};

// The ODT's entries in the slave: a value that is larger than an entry may be takes several, which
// follow each other in the packet as its bytes do in memory.
Odt entries_of(const Odt& odt, std::size_t maxEntrySize);

// What the lists have to keep to.
struct DaqLimits {
    std::size_t maxDto = 0;             // bytes of a packet, without LEN and CTR
    std::size_t identificationSize = 2; // bytes at the beginning of a packet
    std::size_t timestampSize = 4;      // bytes in the first packet of a sample; 0: none
    std::size_t maxEntrySize = 0;       // bytes; 0: not limited
    std::size_t entryGranularity = 1;   // bytes
    std::size_t maxLists = 4;           // of receiver and slave
    std::size_t maxOdts = 0xC0;         // of a list: ODT numbers end at 0xBF
};

constexpr std::size_t most_entries = 255; // of an ODT

// One list as it is asked for: its values, in their order.
struct WantedList {
    std::string name;
    std::uint16_t event = 0;
    std::vector<MeasuredValue> values;
};

// Fills the values, in their order, into as few ODTs as the limits allow. Throws SessionError for
// what does not fit, with the numbers.
DaqPlan make_plan(const std::vector<WantedList>& wanted, const DaqLimits& limits);

// Bytes of one sample of the list, with identification and timestamp.
std::size_t sample_size(const DaqList& list, const DaqLimits& limits);

} // namespace xcp_master
