#pragma once
// What is written while a slave sends is formatted and written on a thread of its own: neither the
// receiving thread nor the worker waits for a file.

#include "io/ring.h"
#include "io/single_writer.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <stop_token>
#include <string_view>
#include <thread>

namespace task {

// When the writer does not follow: items are lost, or their giver waits, as it may for a source
// that waits too.
enum class NoRoom { loses, waits };

// Where the items go; on the writer's thread.
template <class Item>
class FileFormat {
  public:
    virtual ~FileFormat() = default;
    // Formats items, in the order in which they were given and in pieces of any length. Gives the
    // number of bytes that are ready to be written.
    virtual std::size_t add(std::span<const Item> items) = 0;
    // Writes them. `last`: nothing follows. Neither throws.
    virtual void write(bool last) = 0;
};

template <class Item>
class FileWriter {
  public:
    // Holds at least `size` items. Once `urgent` gives true nothing waits any more; any thread may
    // ask it. The format is not owned.
    FileWriter(std::size_t size, NoRoom noRoom, std::function<bool()> urgent,
               FileFormat<Item>& format)
        : noRoomDoes_(noRoom), urgent_(std::move(urgent)), ring_(size), format_(format),
          thread_([this](const std::stop_token& stop) { work(stop); }) {}

    // Takes one item, or several of which all are lost or none; one thread's alone. False: lost.
    bool take(const Item& item) {
        if (ring_.put(item))
            return true;
        const Item waiting = item; // the item itself stays in registers on the way to the ring
        return put_later(std::span(&waiting, 1));
    }
    bool take(std::span<const Item> items) { return ring_.put(items) || put_later(items); }

    // Writes what is left and ends the thread; after the last take().
    void close() {
        thread_.request_stop();
        thread_.join();
    }

    // What most of the lost items were lost to; after close().
    std::string_view cause_of_loss() const {
        return urgent_()                             ? not_waited_for
               : lostToWriting_ >= lostToFormatting_ ? "the disk cannot follow"
                                                     : "formatting cannot follow";
    }

    bool urgent() const { return urgent_(); }

    static constexpr std::string_view not_waited_for = "the run was told not to wait for the file";

  private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds idle_pause{5};
    static constexpr std::size_t batch_size = 4096;  // items; room for new ones comes so often
    static constexpr std::size_t write_size = 65536; // bytes, or a little more

    bool put_later(std::span<const Item> items) {
        while (noRoomDoes_ == NoRoom::waits && !urgent_()) {
            std::this_thread::sleep_for(idle_pause);
            if (ring_.put(items))
                return true;
        }
        io::add(lost_, items.size());
        return false;
    }

    void work(const std::stop_token& stop) {
        for (;;) {
            const bool last = stop.stop_requested(); // looked at first: what came before is seen
            formatting_ = writing_ = {};
            empty_ring();
            write(last);
            if (last)
                return;
            std::this_thread::sleep_for(idle_pause);
        }
    }

    void empty_ring() {
        for (auto batch = ring_.front(batch_size); !batch.empty();
             batch = ring_.front(batch_size)) {
            const auto start = Clock::now();
            const std::size_t ready = format_.add(batch);
            ring_.drop(batch.size());
            formatting_ += Clock::now() - start;
            if (ready >= write_size)
                write(false);
        }
    }

    void write(bool last) {
        const auto start = Clock::now();
        format_.write(last);
        writing_ += Clock::now() - start;
        explain_losses();
    }

    // Since the ring was empty last, the thread was kept busy by the one or the other.
    void explain_losses() {
        const std::uint64_t lost = lost_.load(std::memory_order_relaxed);
        (writing_ > formatting_ ? lostToWriting_ : lostToFormatting_) += lost - explained_;
        explained_ = lost;
    }

    const NoRoom noRoomDoes_;
    const std::function<bool()> urgent_;
    io::Ring<Item> ring_;
    std::atomic<std::uint64_t> lost_ = 0; // written by the giver

    // The thread's.
    FileFormat<Item>& format_;
    Clock::duration formatting_{}; // time that it took, since the ring was empty last
    Clock::duration writing_{};
    std::uint64_t explained_ = 0; // of the lost items
    std::uint64_t lostToWriting_ = 0;
    std::uint64_t lostToFormatting_ = 0;

    std::jthread thread_; // uses all of the above
};

} // namespace task
