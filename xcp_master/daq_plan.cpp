#include "daq_plan.h"

#include "session_error.h"

namespace xcp_master {

namespace {

std::string bytes_text(std::size_t bytes) {
    return std::to_string(bytes) + " bytes";
}

[[noreturn]] void refuse(const std::string& list, const std::string& cause) {
    throw SessionError("list " + list + ": " + cause);
}

void check_entry(const WantedList& list, const MeasuredValue& value, const DaqLimits& limits) {
    if (limits.maxEntrySize > 0 && value.size > limits.maxEntrySize)
        refuse(list.name, value.name + " has " + bytes_text(value.size) +
                              ", the slave's largest ODT entry " + bytes_text(limits.maxEntrySize));
    if (value.size % limits.entryGranularity != 0)
        refuse(list.name, value.name + " has " + bytes_text(value.size) +
                              ", the slave's ODT entries a multiple of " +
                              bytes_text(limits.entryGranularity));
}

// Bytes for entries in the ODT with this number.
std::size_t room_in(std::size_t odt, const DaqLimits& limits) {
    const std::size_t taken = limits.identificationSize + (odt == 0 ? limits.timestampSize : 0);
    return limits.maxDto > taken ? limits.maxDto - taken : 0;
}

DaqList fill(const WantedList& wanted, const DaqLimits& limits) {
    DaqList list{wanted.name, wanted.event, {}};
    std::size_t room = 0;
    for (const MeasuredValue& value : wanted.values) {
        check_entry(wanted, value, limits);
        const bool full = list.odts.empty() || list.odts.back().size() == most_entries;
        if (full || value.size > room) {
            room = room_in(list.odts.size(), limits);
            list.odts.emplace_back();
        }
        if (value.size > room)
            refuse(wanted.name, value.name + " has " + bytes_text(value.size) +
                                    ", a packet of at most " + bytes_text(limits.maxDto) +
                                    " has room for " + std::to_string(room));
        room -= value.size;
        list.odts.back().push_back(value);
    }
    if (list.odts.size() > limits.maxOdts)
        refuse(wanted.name, std::to_string(wanted.values.size()) + " measurements need " +
                                std::to_string(list.odts.size()) + " ODTs of packets of at most " +
                                bytes_text(limits.maxDto) + ", " + std::to_string(limits.maxOdts) +
                                " can be had");
    return list;
}

} // namespace

DaqPlan make_plan(const std::vector<WantedList>& wanted, const DaqLimits& limits) {
    if (wanted.size() > limits.maxLists)
        throw SessionError(std::to_string(wanted.size()) + " DAQ lists are asked for, " +
                           std::to_string(limits.maxLists) + " can be had");
    DaqPlan plan;
    plan.stamped = limits.timestampSize > 0;
    for (const WantedList& list : wanted)
        plan.lists.push_back(fill(list, limits));
    return plan;
}

std::size_t sample_size(const DaqList& list, const DaqLimits& limits) {
    std::size_t size = limits.timestampSize;
    for (const Odt& odt : list.odts) {
        size += limits.identificationSize;
        for (const MeasuredValue& value : odt)
            size += value.size;
    }
    return size;
}

} // namespace xcp_master
