// One workload of the frame path with the allocator that this program is linked to: built twice, so
// that the two can be compared.
// Usage: allocator_workload path BYTES        seconds of a batch, from a pushed datagram to the
// value
//        allocator_workload udp BYTES         the same from a socket
//        allocator_workload latency PERCENT   seconds from the socket to the value
//        allocator_workload backlog BYTES     resident bytes after a million frames have waited

#include "network_path.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include <unistd.h>

namespace {

double resident_bytes() {
    std::size_t total = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// What one thread pushed another has taken, then the usual traffic goes on for a moment.
double memory_after_backlog(std::size_t packetSize) {
    const bench::Datagram datagram = bench::datagram_for(packetSize);
    for (std::size_t pushed = 0; pushed < 1'000'000; pushed += datagram.packets)
        api_xcp_daq_push_frame(datagram.payload.data(), datagram.payload.size());
    std::thread([] {
        while (XCPFrameBuffer.size() > 0)
            XCPFrameBuffer.wait_for_buffer(std::chrono::milliseconds(0));
    }).join();
    bench::along<bench::LibraryFramePath>(packetSize)()();
    return resident_bytes();
}

// The median of as many batches as half a second holds: two threads fall into one of several
// rhythms for a while.
double typical(const bench::Batch& batch) {
    batch(); // warms up
    std::vector<double> seconds;
    for (double total = 0; total < 0.5; total += seconds.back())
        seconds.push_back(batch());
    const auto middle = seconds.begin() + static_cast<std::ptrdiff_t>(seconds.size() / 2);
    std::nth_element(seconds.begin(), middle, seconds.end());
    return *middle;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        return 1;
    const std::string_view workload = argv[1];
    const auto number = static_cast<std::size_t>(std::atoi(argv[2]));
    double result = 0;
    if (workload == "path")
        result = typical(bench::along<bench::LibraryFramePath>(number)());
    else if (workload == "udp")
        result = typical(bench::library_over_udp(number)());
    else if (workload == "latency")
        result = bench::library_latency(static_cast<double>(number) / 100)()();
    else if (workload == "backlog")
        result = memory_after_backlog(number);
    else
        return 1;
    std::printf("%.9g\n", result);
}
