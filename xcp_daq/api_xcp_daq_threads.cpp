#include "api_xcp_daq_threads.h"

#include "api_xcp_daq.h"
#include "standard_output.h"
#include "transport_udp.h"
#include "xcp/message.h"

// EmptyFrameBuffer comes first, since it must outlive the queue.
std::vector<std::uint8_t> EmptyFrameBuffer;
std::counting_semaphore<> XcpFrameBufferCount{0};
XCPFrameBufferQueue<std::vector<std::uint8_t>> XCPFrameBuffer;
std::int64_t XCPFrameCount = 0;
std::atomic<std::int32_t> frameThreadStopped = 0;
std::atomic<bool> api_xcp_daq::daqProcessingFlag = false;

namespace {

using Frame = std::vector<std::uint8_t>;

constexpr std::chrono::milliseconds longest_wait{100};
constexpr int worker_priority = 22;

// Host time at which the first frame after the latest start was taken; zero seconds: none yet.
// Reset before the worker's thread exists, then the worker's alone.
timespec FirstSampleTime{};

// One worker at a time takes from the queue, whichever object started it.
std::atomic<bool> worker_started = false;

// A request of one byte carries no code and is dropped.
void print_service_request(std::span<const std::uint8_t> packet) {
    constexpr std::uint8_t reset = 0;
    if (packet.size() < 2)
        return;
    xcp_daq::print_line("%s",
                        packet[1] == reset ? "Service Request Reset " : "Server Request Text ");
}

} // namespace

void api_xcp_daq_push_frame(const std::uint8_t* data, std::uint64_t length) {
    if (data == nullptr)
        return;
    xcp::MessageWalk messages({data, length});
    for (xcp::Message message{}; messages.next(message);) {
        if (message.is_daq())
            XCPFrameBuffer.push(Frame(message.packet.begin(), message.packet.end()));
        else if (message.is_service_request())
            print_service_request(message.packet);
    }
}

void api_xcp_daq::startWorkerThreads() {
    if (worker_started.exchange(true))
        return;
    frameThreadStopped = 0;
    FirstSampleTime = {};
    try {
        frameThread = new std::thread(HandleFrameData);
    } catch (...) {
        worker_started = false;
        throw;
    }
}

void api_xcp_daq::stopWorkerThreads() const {
    if (frameThread == nullptr)
        return;
    frameThreadStopped = 1;
    frameThread->join();
    delete std::exchange(frameThread, nullptr);
    worker_started = false;
}

void api_xcp_daq::enableDAQProcessing() {
    daqProcessingFlag = true;
}

void api_xcp_daq::disableDAQProcessing() {
    daqProcessingFlag = false;
}

void api_xcp_daq::HandleFrameData() {
    Frame frame;
    Transport_udp::instance();
    setprio(0, worker_priority);
    while (frameThreadStopped == 0) {
        frame = XCPFrameBuffer.wait_for_buffer(longest_wait);
        if (frame == EmptyFrameBuffer)
            continue;
        if (FirstSampleTime.tv_sec == 0)
            clock_gettime(CLOCK_REALTIME, &FirstSampleTime);
        if (daqProcessingFlag)
            processFrame(frame, &FirstSampleTime);
        frame.clear();
    }
}
