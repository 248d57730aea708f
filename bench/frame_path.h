#pragma once
// The frame path from a datagram to a value: the library's, and the same written by hand.

#include "api_xcp_daq_threads.h"
#include "ratios.h"
#include "workload.h"
#include "xcp/message.h"

#include <deque>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>

namespace bench {

constexpr std::size_t packet_sizes[] = {8, 32, 64, 240};

inline std::string size_text(std::size_t size) {
    return std::to_string(size) + " bytes";
}

// A table for packets of this size, and a datagram of them.
inline Datagram datagram_for(std::size_t packetSize) {
    clear_table();
    add_plain_odt(0, 0, packetSize);
    return datagram_of(packet_for(0, 0));
}

// An item's time on a saturated 1 Gbit/s link.
inline double link_seconds(const Datagram& datagram) {
    constexpr double headers = 66; // Ethernet with preamble and gap, IP, UDP
    return (static_cast<double>(datagram.payload.size()) + headers) * 8e-9 /
           static_cast<double>(datagram.packets);
}

// The plain queue: mutex, deque, semaphore, frames moved in and out.
class PlainQueue {
  public:
    void push(Frame&& frame) {
        const std::lock_guard lock(mutex_);
        frames_.push_back(std::move(frame));
        count_.release();
    }
    Frame take() {
        count_.acquire();
        const std::lock_guard lock(mutex_);
        Frame frame = std::move(frames_.front());
        frames_.pop_front();
        return frame;
    }
    void clear() {
        while (count_.try_acquire()) {
        }
        frames_.clear();
    }

  private:
    std::deque<Frame> frames_;
    std::mutex mutex_;
    std::counting_semaphore<> count_{0};
};

// What a straightforward receiver does with a datagram of DAQ packets.
inline void push_by_hand(PlainQueue& queue, const Frame& payload) {
    std::size_t at = 0;
    while (at + 4 <= payload.size()) {
        const std::size_t length = payload[at] | static_cast<std::size_t>(payload[at + 1]) << 8;
        queue.push(Frame(payload.begin() + static_cast<std::ptrdiff_t>(at + 4),
                         payload.begin() + static_cast<std::ptrdiff_t>(at + 4 + length)));
        at += 4 + length;
    }
}

constexpr std::size_t path_datagrams = 400;

inline std::size_t path_items(const Datagram& datagram) {
    return path_datagrams * datagram.packets;
}

inline void await_updates(std::uint64_t updates) {
    while (updates_of_last(0, 0) < updates) {
    }
}

// A worker written by hand.
class PlainFramePath {
  public:
    ~PlainFramePath() {
        queue_.push({});
        worker_.join();
    }
    void push(const Frame& payload) { push_by_hand(queue_, payload); }

  private:
    void work() {
        for (Frame frame = queue_.take(); !frame.empty(); frame = queue_.take())
            decode_map_by_hand(appData.daqList[0].odtEntryMap, frame);
    }
    PlainQueue queue_;
    std::thread worker_{[this] { work(); }};
};

class LibraryFramePath {
  public:
    LibraryFramePath() {
        daq().startWorkerThreads();
        api_xcp_daq::enableDAQProcessing();
    }
    ~LibraryFramePath() { daq().stopWorkerThreads(); }
    void push(const Frame& payload) { api_xcp_daq_push_frame(payload.data(), payload.size()); }

  private:
    static api_xcp_daq& daq() {
        static auto* object = new api_xcp_daq; // its destruction would empty the next table
        return *object;
    }
};

template <class Path>
Prepare along(std::size_t packetSize) {
    return [packetSize] {
        const Datagram datagram = datagram_for(packetSize);
        auto path = std::make_shared<Path>();
        return [path, datagram] {
            const std::uint64_t before = updates_of_last(0, 0);
            return seconds_of([&] {
                for (std::size_t i = 0; i < path_datagrams; ++i)
                    path->push(datagram.payload);
                await_updates(before + path_datagrams * datagram.packets);
            });
        };
    };
}

} // namespace bench
