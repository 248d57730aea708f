#include "daq_plan.h"

#include "session_error.h"

#include <algorithm>

namespace xcp_master {

namespace {

std::string bytes_text(std::size_t bytes) {
    return std::to_string(bytes) + " bytes";
}

[[noreturn]] void refuse(const std::string& list, const std::string& cause) {
    throw Unsuitable("list " + list + ": " + cause);
}

// Whole steps of the granularity.
std::size_t max_entry_size(const DaqLimits& limits) {
    return limits.maxEntrySize - limits.maxEntrySize % limits.entryGranularity;
}

void check_entry(const WantedList& list, const MeasuredValue& value, const DaqLimits& limits) {
    if (limits.maxEntrySize > 0 && max_entry_size(limits) == 0)
        refuse(list.name, "the slave's largest ODT entry has " + bytes_text(limits.maxEntrySize) +
                              ", its ODT entries a multiple of " +
                              bytes_text(limits.entryGranularity));
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
    std::size_t taken = 0; // entries
    for (const MeasuredValue& value : wanted.values) {
        check_entry(wanted, value, limits);
        const std::size_t entries = entries_of({value}, max_entry_size(limits)).size();
        if (list.odts.empty() || taken + entries > most_entries || value.size > room) {
            room = room_in(list.odts.size(), limits);
            taken = 0;
            list.odts.emplace_back();
        }
        if (value.size > room)
            refuse(wanted.name, value.name + " has " + bytes_text(value.size) +
                                    ", a packet of at most " + bytes_text(limits.maxDto) +
                                    " has room for " + std::to_string(room));
        room -= value.size;
        taken += entries;
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

Odt entries_of(const Odt& odt, std::size_t maxEntrySize) {
    Odt entries;
    for (const MeasuredValue& value : odt) {
        const std::size_t most = maxEntrySize == 0 ? value.size : maxEntrySize;
        for (std::size_t done = 0; done < value.size; done += most)
            entries.push_back({value.name, static_cast<std::uint32_t>(value.address + done),
                               value.extension,
                               static_cast<std::uint8_t>(std::min(most, value.size - done))});
    }
    return entries;
}

DaqPlan make_plan(const std::vector<WantedList>& wanted, const DaqLimits& limits) {
    if (wanted.size() > limits.maxLists)
        throw Unsuitable(std::to_string(wanted.size()) + " DAQ lists are asked for, " +
                         std::to_string(limits.maxLists) + " can be had");
    DaqPlan plan;
    plan.stamped = limits.timestampSize > 0;
    plan.maxEntrySize = max_entry_size(limits);
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
