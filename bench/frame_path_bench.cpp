// Ingestion, queue, and the frame path from a datagram to a value, against the same work written by
// hand.

#include "frame_path.h"

namespace bench {

namespace {

void empty_library_queue() {
    while (XCPFrameBuffer.size() > 0)
        XCPFrameBuffer.wait_for_buffer(std::chrono::milliseconds(0));
}

// ---- ingestion, with nobody taking ----

void add_ingestion(std::size_t packetSize) {
    constexpr std::size_t datagrams = 20;
    const Row row{"ingestion", size_text(packetSize), "at most 1.15"};
    const std::size_t items = datagrams * datagram_for(packetSize).packets;
    add(row, "library", items, [packetSize] {
        return [datagram = datagram_for(packetSize)] {
            const double seconds = seconds_of([&] {
                for (std::size_t i = 0; i < datagrams; ++i)
                    api_xcp_daq_push_frame(datagram.payload.data(), datagram.payload.size());
            });
            empty_library_queue();
            return seconds;
        };
    });
    // malloc, copy, lock, append, release, unlock per packet.
    add(row, "floor", items, [packetSize] {
        auto queue = std::make_shared<PlainQueue>();
        return [queue, datagram = datagram_for(packetSize)] {
            const double seconds = seconds_of([&] {
                for (std::size_t i = 0; i < datagrams; ++i)
                    push_by_hand(*queue, datagram.payload);
            });
            queue->clear();
            return seconds;
        };
    });
}

// ---- queue: one thread pushes, one takes ----

constexpr std::size_t queue_frames = 50000;

template <class Push, class Take>
Batch through_queue(Push push, Take take) {
    return [push, take] {
        return seconds_of([&] {
            std::thread producer([&] {
                for (std::size_t i = 0; i < queue_frames; ++i)
                    push(Frame(32, 1));
            });
            for (std::size_t taken = 0; taken < queue_frames;)
                taken += take().empty() ? 0 : 1;
            producer.join();
        });
    };
}

void add_queue() {
    const Row row{"queue", "32 bytes, two threads", "at most 1.1", true};
    add(row, "library", queue_frames, [] {
        return through_queue(
            [](Frame&& frame) { XCPFrameBuffer.push(std::move(frame)); },
            [] { return XCPFrameBuffer.wait_for_buffer(std::chrono::milliseconds(100)); });
    });
    add(row, "floor", queue_frames, [] {
        auto queue = std::make_shared<PlainQueue>();
        return through_queue([queue](Frame&& frame) { queue->push(std::move(frame)); },
                             [queue] { return queue->take(); });
    });
}

} // namespace

void add_frame_path() {
    for (const std::size_t size : packet_sizes)
        add_ingestion(size);
    add_queue();
    for (const std::size_t size : packet_sizes) {
        const Datagram datagram = datagram_for(size);
        const Row row{"path", size_text(size),       "at least 1.0, aim 1.3", true,
                      true,   link_seconds(datagram)};
        add(row, "library", path_items(datagram), along<LibraryFramePath>(size));
        add(row, "floor", path_items(datagram), along<PlainFramePath>(size));
    }
}

} // namespace bench
