// The frame path with the task's allocator against the same with the C library's. An allocator is a
// whole process's, so that each batch runs in one of its own.

#include "network_path.h"

#include <cstdio>
#include <stdexcept>
#include <string>

namespace bench {

namespace {

Prepare in_process(const char* program, const std::string& arguments) {
    return [command = std::string(program) + " " + arguments] {
        return [command] {
            double result = 0;
            std::FILE* output = popen(command.c_str(), "r");
            const bool read = output != nullptr && std::fscanf(output, "%lf", &result) == 1;
            if (output == nullptr || pclose(output) != 0 || !read)
                throw std::runtime_error(command + " failed");
            return result;
        };
    };
}

void add_both(const Row& row, std::size_t items, const std::string& arguments) {
    add(row, "library", items, in_process(ALLOCATOR_WORKLOAD, arguments), true);
    add(row, "floor", items, in_process(ALLOCATOR_WORKLOAD "_plain", arguments), true);
}

} // namespace

void add_allocator() {
    for (const std::string workload : {"path", "udp"})
        for (const std::size_t size : packet_sizes) {
            const Datagram datagram = datagram_for(size);
            const Row row{"allocator",
                          workload + ", " + size_text(size),
                          size <= 32 ? "at most 0.75" : "at most 1.0",
                          true,
                          false,
                          link_seconds(datagram)};
            const std::size_t batch = workload == "path" ? path_datagrams : datagrams;
            add_both(row, batch * datagram.packets, workload + " " + std::to_string(size));
        }
    for (const std::string percent : {"50", "99"})
        add_both({"allocator", "latency, p" + percent, "at most 1.0", true}, 1,
                 "latency " + percent);
}

} // namespace bench
