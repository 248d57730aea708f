#pragma once
// What a slave can, by its own answers or, where it gives none, by what its A2L file says of it.

#include "command_channel.h"
#include "daq_plan.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace xcp_master {

// How a DAQ packet begins, by the code that GET_DAQ_PROCESSOR_INFO has for it.
enum class IdentificationField : std::uint8_t { absolute, relative_byte, relative_word, aligned };

struct EventChannel {
    std::uint16_t number = 0;
    std::string name;
    std::uint64_t cycle_ns = 0; // 0: not cyclic, or not known
};

struct DaqProperties {
    std::size_t maxDto = 0; // bytes
    xcp::ByteOrder order = xcp::ByteOrder::little;
    std::size_t addressGranularity = 1; // bytes
    bool dynamic = false;               // lists are allocated by the master
    bool overloadInPid = false;         // bit 7 of an ODT number tells that samples were lost
    IdentificationField identificationField = IdentificationField::absolute;
    std::uint16_t minDaq = 0; // lists below are the slave's own
    std::size_t entryGranularity = 1;
    std::size_t maxEntrySize = 0;  // bytes; 0: not known
    std::size_t timestampSize = 0; // bytes; 0: none
    std::uint64_t unit_ps = 1000;  // the timestamp's, in picoseconds
    std::uint16_t ticksPerUnit = 1;

    bool operator==(const DaqProperties&) const = default;
};

// What an A2L file says. Without its block DAQ, the slave's answers alone count.
struct StatedProperties {
    std::optional<std::size_t> maxDto;
    std::optional<xcp::ByteOrder> order;
    std::optional<std::size_t> addressGranularity;
    std::optional<DaqProperties> daq; // all but the three above
    std::vector<EventChannel> events;
};

struct SlaveProperties : DaqProperties {
    std::string id;                   // by GET_ID; may be empty
    std::size_t maxCto = 0;           // bytes
    std::vector<EventChannel> events; // of the lists, in their order
    std::vector<std::string> remarks; // what was not asked of the slave itself, or is contradicted
};

// What one answer says of the slave.
void take_answer(DaqProperties& to, const xcp::Connect::Answer& answer);
void take_answer(DaqProperties& to, const xcp::GetDaqProcessorInfo::Answer& answer);
void take_answer(DaqProperties& to, const xcp::GetDaqResolutionInfo::Answer& answer);

// Adds a remark for each property in which the answers are not what was stated.
void remark_contradictions(const StatedProperties& stated, SlaveProperties& slave);

// Asks a slave that has just answered to CONNECT. Throws SessionError for one that is locked or
// does not do DAQ at all.
SlaveProperties ask_properties(CommandChannel& channel, const xcp::Connect::Answer& connected,
                               const StatedProperties& stated);

// Asks for the event channels that the lists use, and adds a remark where the slave's answer is not
// what was stated. Throws SessionError for a channel that the slave does not have.
void ask_events(CommandChannel& channel, const std::vector<WantedList>& lists,
                const StatedProperties& stated, SlaveProperties& slave);

// The properties in words, by their names, as they are shown and compared.
struct PropertyText {
    std::string name;
    std::string value;
};
std::vector<PropertyText> in_words(const DaqProperties& properties);

// What can be received: lists that the master allocates, addresses that count bytes, a timestamp of
// 4 bytes of whole nanoseconds. Throws SessionError for the first property that differs.
void check_form(const DaqProperties& properties);

DaqLimits limits_of(const DaqProperties& properties);

} // namespace xcp_master
