#pragma once
// Items on their way from one thread to another, bounded and without a lock.

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <span>
#include <vector>

namespace io {

// One thread puts, one takes.
template <class Item>
class Ring {
  public:
    // Holds at least so many items.
    explicit Ring(std::size_t size) : items_(std::bit_ceil(size)) {}

    // Takes all of the items over, or none and gives false when there is no room for them.
    bool put(std::span<const Item> items) {
        if (!has_room(items.size()))
            return false;
        const std::size_t end = end_.load(std::memory_order_relaxed);
        const auto first = items.first(std::min(items.size(), items_.size() - place(end)));
        const auto rest = items.subspan(first.size());
        std::copy(first.begin(), first.end(), &items_[place(end)]);
        std::copy(rest.begin(), rest.end(), items_.data());
        end_.store(end + items.size(), std::memory_order_release);
        return true;
    }
    bool put(const Item& item) {
        if (!has_room(1))
            return false;
        const std::size_t end = end_.load(std::memory_order_relaxed);
        items_[place(end)] = item;
        end_.store(end + 1, std::memory_order_release);
        return true;
    }

    // The oldest items, as many as lie together but `most` at most. They stay until drop().
    std::span<const Item> front(std::size_t most) const {
        const std::size_t begin = begin_.load(std::memory_order_relaxed);
        const std::size_t waiting = end_.load(std::memory_order_acquire) - begin;
        const std::size_t together = std::min(waiting, items_.size() - place(begin));
        return {&items_[place(begin)], std::min(together, most)};
    }
    void drop(std::size_t count) {
        begin_.store(begin_.load(std::memory_order_relaxed) + count, std::memory_order_release);
    }

  private:
    std::size_t place(std::size_t number) const { return number & (items_.size() - 1); }

    // Looks at the taker's end only when its last known place leaves too little.
    bool has_room(std::size_t count) {
        const std::size_t end = end_.load(std::memory_order_relaxed);
        if (items_.size() - (end - knownBegin_) >= count)
            return true;
        knownBegin_ = begin_.load(std::memory_order_acquire);
        return items_.size() - (end - knownBegin_) >= count;
    }

    // Each end on a cache line of its own, so that moving one does not disturb the other thread.
    static constexpr std::size_t cache_line = 64;

    std::vector<Item> items_;
    alignas(cache_line) std::atomic<std::size_t> end_ = 0;   // moved by who puts
    std::size_t knownBegin_ = 0;                             // where the other end was last seen
    alignas(cache_line) std::atomic<std::size_t> begin_ = 0; // moved by who takes
};

} // namespace io
