#pragma once
// The slave's DAQ lists: their allocation, layout, mode and state, and the commands that change
// them. What is wrong with a command is thrown as Refusal, and nothing has changed then.

#include "properties.h"
#include "signal_memory.h"
#include "xcp/commands.h"
#include "xcp/error_codes.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace simulated_slave {

struct Odt {
    std::vector<MemoryView> entries; // of size 0: not written
};

struct DaqList {
    std::vector<Odt> odts;
    std::optional<std::uint16_t> event; // empty: it has no mode
    bool stamped = false;
    bool selected = false;
    bool running = false;
};

class DaqLists {
  public:
    DaqLists(const Properties& properties, const SignalMemory& memory)
        : properties_(properties), memory_(memory) {}

    const std::vector<DaqList>& all() const { return lists_; }
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
    struct Pointer {
        std::size_t list;
        std::size_t odt;
        std::size_t entry; // may be the one behind the ODT's last
    };

    void enter(Stage stage) const;
    DaqList& list(std::uint16_t number, xcp::Error otherwise);
    std::size_t memory_use() const;
    std::size_t odts() const;
    std::size_t packet_size(const DaqList& list, std::size_t odt, bool stamped) const;
    bool stamped(const DaqList& list) const;
    bool any_selected() const;
    void start_selected();
    void stop(bool all);

    const Properties& properties_;
    const SignalMemory& memory_;
    std::vector<DaqList> lists_;
    Stage stage_ = Stage::none;
    std::optional<Pointer> pointer_;
};

} // namespace simulated_slave
