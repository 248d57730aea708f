#include "registration.h"

#include "api_xcp_daq.h"
#include "exit_status.h"

#include <fmt/format.h>

namespace task {

std::string register_task(std::string name) {
    constexpr short unchanged_priority = 0;
    int configEvent = 0;
    const std::int32_t id = xcp_daq_master_init(name.data(), unchanged_priority, &configEvent,
                                                nullptr, nullptr, nullptr);
    if (id == -1)
        throw Failure(ExitStatus::registration, "the host did not register the name " + name);
    return fmt::format("registered as {}, task {}", name, xcp_master_pid);
}

} // namespace task
