#pragma once
// The slave's DAQ lists: their allocation, layout, mode and state, and the commands that change
// them. What is wrong with a command is thrown as Refusal, and nothing has changed then.

#include "properties.h"
#include "signal_memory.h"
#include "xcp/daq_set_up.h"
#include "xcp/error_codes.h"

#include <cstdint>
#include <vector>

namespace simulated_slave {

using DaqList = xcp::DaqListSetUp<MemoryView>; // its entries of size 0: not written

class DaqLists {
  public:
    DaqLists(const Properties& properties, const SignalMemory& memory)
        : properties_(properties), memory_(memory) {}

    const std::vector<DaqList>& all() const { return setUp_.lists(); }
    bool running() const;

    // PID of the list's first ODT; 0 unless the identification field is absolute.
    std::uint8_t first_pid(std::size_t list) const;

    void clear(); // as if switched on

    xcp::Acknowledgement execute(const xcp::FreeDaq& command);
    xcp::Acknowledgement execute(const xcp::AllocDaq& command);
    xcp::Acknowledgement execute(const xcp::AllocOdt& command);
    xcp::Acknowledgement execute(const xcp::AllocOdtEntry& command);
    xcp::Acknowledgement execute(const xcp::SetDaqPtr& command);
    xcp::Acknowledgement execute(const xcp::WriteDaq& command);
    xcp::Acknowledgement execute(const xcp::SetDaqListMode& command);
    xcp::StartStopDaqList::Answer execute(const xcp::StartStopDaqList& command);
    xcp::Acknowledgement execute(const xcp::StartStopSynch& command);

  private:
    enum class Stage { none, freed, lists, odts, entries };

    void enter(Stage stage) const;
    std::size_t own_number(std::uint16_t number) const; // the first list's is 0
    template <class Command>
    Command with_own_number(Command command) const;
    DaqList& list(std::uint16_t number, xcp::Error otherwise);
    std::size_t memory_use() const;
    std::size_t odts() const;
    std::size_t packet_size(const DaqList& list, std::size_t odt, bool stamped) const;
    bool stamped(const DaqList& list) const;
    bool any_selected() const;

    const Properties& properties_;
    const SignalMemory& memory_;
    xcp::DaqSetUp<MemoryView> setUp_;
    Stage stage_ = Stage::none;
};

} // namespace simulated_slave
