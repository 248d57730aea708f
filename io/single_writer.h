#pragma once
// Counters that one thread writes and others read.

#include <atomic>
#include <type_traits>

namespace io {

// A plain sum is enough, since nobody else writes; an atomic one would cost a locked instruction.
template <class Number>
inline void add(std::atomic<Number>& counter, std::type_identity_t<Number> amount) {
    counter.store(counter.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
}

} // namespace io
