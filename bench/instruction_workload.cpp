// One workload, so many rounds of it, for a tool that counts instructions (see run-bench).
// Usage: instruction_workload decode ENTRIES ROUNDS   one packet a round
//        instruction_workload queue BYTES ROUNDS      one datagram a round, pushed and taken
// Prints the items (entries or packets) of a round.

#include "frame_path.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

std::size_t decode(int entries, long rounds) {
    bench::add_mixed_odt(0, 0, entries);
    const bench::Frame packet = bench::packet_for(0, 0);
    for (long round = 0; round < rounds; ++round)
        api_xcp_daq::processFrame(packet, nullptr);
    return static_cast<std::size_t>(entries);
}

std::size_t queue(std::size_t bytes, long rounds) {
    const bench::Datagram datagram = bench::datagram_for(bytes);
    for (long round = 0; round < rounds; ++round) {
        api_xcp_daq_push_frame(datagram.payload.data(), datagram.payload.size());
        for (std::size_t taken = 0; taken < datagram.packets; ++taken)
            XCPFrameBuffer.wait_for_buffer(std::chrono::milliseconds(0));
    }
    return datagram.packets;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        return 1;
    const int size = std::atoi(argv[2]);
    const long rounds = std::atol(argv[3]);
    const std::size_t items = std::string_view(argv[1]) == "decode"
                                  ? decode(size, rounds)
                                  : queue(static_cast<std::size_t>(size), rounds);
    std::printf("%zu\n", items);
}
