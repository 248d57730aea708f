// What a packet costs that cannot be decoded and therefore prints a line: a flood of them, with
// standard output wherever the shell has put it. Prints nanoseconds per packet on standard error.

#include "api_xcp_daq.h"
#include "ratios.h"

#include <csignal>
#include <cstdio>

int main() {
    std::signal(SIGPIPE, SIG_IGN); // as the task does: a reader that goes away ends nothing
    constexpr int packets = 200000;
    const std::vector<std::uint8_t> unknown = {77, 3, 0, 0, 0, 0, 0, 0};
    const double seconds = bench::seconds_of([&] {
        for (int i = 0; i < packets; ++i)
            api_xcp_daq::processFrame(unknown, nullptr);
    });
    std::fprintf(stderr, "%.0f ns\n", seconds * 1e9 / packets);
}
