#pragma once
// Samples the running DAQ lists at their events and puts the packets into the outbox.

#include "clock.h"
#include "daq_lists.h"
#include "outbox.h"

#include <cstdint>
#include <limits>
#include <vector>

namespace simulated_slave {

class Sampler {
  public:
    static constexpr std::uint64_t never = std::numeric_limits<std::uint64_t>::max();

    // With jumps, the clock jumps now and then.
    Sampler(const Properties& properties, const SignalMemory& memory, const DaqLists& lists,
            Clock& clock, Outbox& outbox, bool jumps);

    // All events begin with their cycle 0 at this time.
    void start(std::uint64_t now_ns);

    // Samples what is due until now, in the order of time. Gives the time of the next event, or
    // never while no list runs.
    std::uint64_t advance(std::uint64_t now_ns);

  private:
    struct Timer { // of an event
        std::uint16_t event;
        std::uint64_t cycle_ns;
        std::uint64_t due_ns;
    };

    bool used(std::uint16_t event) const;
    std::uint64_t next_due() const;
    void sample_all(std::uint64_t due_ns);
    void sample(std::size_t list, std::uint64_t due_ns);
    void append_identification(std::size_t list, std::size_t odt);
    void append_padding();
    std::vector<MemoryView::Whole> signals_in(const std::vector<MemoryView>& odt) const;

    const Properties& properties_;
    const SignalMemory& memory_;
    const DaqLists& lists_;
    Clock& clock_;
    Outbox& outbox_;
    const bool jumps_;

    std::vector<Timer> timers_; // of events that the running lists have
    std::vector<std::vector<std::vector<MemoryView::Whole>>> signals_; // by list and ODT
    std::uint64_t started_ns_ = 0;
    std::uint64_t times_ = 0; // at which lists were sampled

    std::vector<std::uint8_t> packet_;    // being put together
    std::vector<Datagram::Value> values_; // in it
};

} // namespace simulated_slave
