#include "registration.h"

#include "api_xcp_daq.h"
#include "exit_status.h"
#include "task_services.h"

#include <fmt/format.h>

namespace task {

std::string register_task(const Options& options) {
    std::string name = options.name;
    int configEvent = 0;
    const std::int32_t id =
        xcp_daq_master_init(name.data(), options.priority, &configEvent, nullptr, nullptr, nullptr);
    if (id == -1)
        throw Failure(ExitStatus::registration, "the host did not register the name " + name);
    std::string text = fmt::format("registered as {}, task {}", name, xcp_master_pid);
    if (options.priority != 0)
        text += fmt::format(", priority {} (recorded, not applied)",
                            halmor_standin::recorded_priority());
    return text;
}

} // namespace task
