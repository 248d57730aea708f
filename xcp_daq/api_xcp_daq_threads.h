#pragma once
/// @file
/// The frame queue between the threads that receive datagrams and the worker that decodes them. A
/// frame is one XCP packet, PID first, without its message header.

#include "export.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <semaphore>
#include <utility>
#include <vector>

/// Number of frames that may be taken.
XCP_DAQ_EXPORT extern std::counting_semaphore<> XcpFrameBufferCount;

/// What a take returns when it gets nothing. Never changed.
XCP_DAQ_EXPORT extern std::vector<std::uint8_t> EmptyFrameBuffer;

/// First in, first out; any thread may push, one takes. Unbounded: a measurement that is dropped
/// spoils the run, so when the worker falls behind, frames wait in memory. A frame is in the queue
/// before its unit of XcpFrameBufferCount is released, and a unit is acquired before a frame is
/// removed, so a unit always stands for a frame that is there. The mutex is held only while one
/// frame goes in or out; a taker sleeps on the semaphore, never on the mutex.
///
/// A template by name only: the one instance is XCPFrameBuffer.
template <class T>
class XCPFrameBufferQueue {
  public:
    /// Destroys the frames that wait, without a lock: the worker must have been stopped.
    virtual ~XCPFrameBufferQueue() = default;

    /// Appends a frame and wakes the taker. Throws std::bad_alloc and then changes nothing.
    void push(const T& frame) { append(frame); }
    /// The same, without a copy.
    void push(T&& frame) { append(std::move(frame)); }

    /// Takes the oldest frame, waiting for one at most `timeout`; EmptyFrameBuffer when none came.
    T wait_for_buffer(std::chrono::milliseconds timeout) {
        // The timed wait reads the clock even when a frame is there.
        if (!XcpFrameBufferCount.try_acquire() && !XcpFrameBufferCount.try_acquire_for(timeout))
            return EmptyFrameBuffer;
        const auto lock = lock_soon();
        if (frameQueue.empty())
            return EmptyFrameBuffer;
        T frame = std::move(frameQueue.front());
        frameQueue.pop_front();
        return frame;
    }

    /// Number of frames that wait, for whoever watches the run or waits for its end.
    std::size_t size() const {
        const std::lock_guard lock(queueMutex);
        return frameQueue.size();
    }

  private:
    template <class Frame>
    void append(Frame&& frame) {
        const auto lock = lock_soon();
        frameQueue.push_back(std::forward<Frame>(frame));
        XcpFrameBufferCount.release(); // under the lock, as a take must find the frame
    }

    // The mutex is held for a few nanoseconds, while sleeping on it and being woken costs
    // microseconds: so it is tried a few times first, with pauses that let the holder work.
    std::unique_lock<std::mutex> lock_soon() {
        constexpr int first_pause = 8;
        constexpr int longest_pause = 128;
        std::unique_lock lock(queueMutex, std::defer_lock);
        for (int pauses = first_pause; pauses <= longest_pause; pauses *= 2) {
            if (lock.try_lock())
                return lock;
            for (int i = 0; i < pauses; ++i)
                pause_briefly();
        }
        lock.lock();
        return lock;
    }

    static void pause_briefly() {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
    }

    std::deque<T> frameQueue; // guarded by queueMutex
    mutable std::mutex queueMutex;
};

/// The one queue.
XCP_DAQ_EXPORT extern XCPFrameBufferQueue<std::vector<std::uint8_t>> XCPFrameBuffer;

XCP_DAQ_EXPORT extern std::int64_t XCPFrameCount; ///< not used by the library

/// Non-zero tells the worker to end. Written by the controlling thread, read by the worker.
XCP_DAQ_EXPORT extern std::atomic<std::int32_t> frameThreadStopped;
static_assert(sizeof(frameThreadStopped) == sizeof(std::int32_t));
