#pragma once
// The slave's memory: every signal at its address. Where signals overlap, a byte is that of the
// first one in the file; addresses of no signal hold nothing.

#include "a2l/a2l_file.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace simulated_slave {

// What lies at some addresses in a row.
struct MemoryView {
    struct Part { // bytes of one signal
        std::size_t signal;
        std::size_t first;
        std::size_t count;
    };
    struct Whole { // a signal that begins so many bytes behind the view's beginning
        const a2l::Signal* signal;
        std::size_t at;
    };
    std::uint64_t place = 0; // of the first byte: the address below the address extension
    std::size_t size = 0;
    std::vector<Part> parts;
    // Those that are just as long as the view, and only when there is none, all others that lie
    // wholly in it: what is asked for as a number is not meant as the flags in its bytes.
    std::vector<Whole> signals;
};

class SignalMemory {
  public:
    explicit SignalMemory(std::vector<a2l::Signal> signals);
    SignalMemory(const SignalMemory&) = delete;
    SignalMemory& operator=(const SignalMemory&) = delete;

    std::size_t signals() const { return signals_.size(); }

    // Empty when an address belongs to no signal.
    std::optional<MemoryView> view(std::uint8_t extension, std::uint32_t address,
                                   std::size_t size) const;

    // Both in one, when the one ends where the other begins.
    std::optional<MemoryView> joined(const MemoryView& first, const MemoryView& second) const;

    // Appends the view's bytes at a time: see raw_value().
    void read(const MemoryView& view, std::uint64_t time_ns,
              std::vector<std::uint8_t>& bytes) const;

  private:
    std::optional<std::size_t> owner_of(std::uint64_t place) const;
    void find_signals(std::uint64_t place, MemoryView& view) const;

    const std::vector<a2l::Signal> signals_;
    std::multimap<std::uint64_t, std::size_t> places_; // of their first bytes
};

// Every single value of the file, in its order. What cannot be measured is left out.
std::vector<a2l::Signal> signals_of(const a2l::File& file);

} // namespace simulated_slave
