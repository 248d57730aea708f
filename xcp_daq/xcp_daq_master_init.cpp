// Includes nothing of the library but its own header: Registered_name here is another object than
// the library's global of that name.

#include "xcp_daq_master_init.h"

#include "halmor_runtime.h"

#include <iostream>

std::int32_t xcp_master_pid = 0;

namespace {

constexpr const char* source_path = "xcp_daq/xcp_daq_master_init";
constexpr std::int32_t not_registered = -1;
// What these mean is the host's business.
constexpr int memory = 1;
constexpr int layer = 3;
constexpr int event_argument = 50;

char Registered_name[50];

} // namespace

std::int32_t xcp_daq_master_init(char* task_name, short priority, int* config_event, int*, int*,
                                 int*) {
    std::int32_t received = 0;
    if (link_to_memory(memory, &received) == 0) {
        std::cout << "\n Halmor must be running to use this task " << std::endl;
        return not_registered;
    }
    _setsid();
    join_layer(layer);
    xcp_master_pid = get_TLS_tid();

    // The line numbers are part of the log entries, whatever line they stand in here.
    if (_qnx_name_locate(0, task_name, 0, nullptr) != -1) {
        log_error(source_path, 101, 66, 0, "aborting - there is already a <%s> version running",
                  task_name);
        return not_registered;
    }
    copyn(source_path, 111, Registered_name, task_name, sizeof Registered_name);
    if (priority >= 1 && priority <= 19)
        setprio(0, priority);
    if (const std::int16_t status = event_attach("config", event_argument, config_event);
        status != 0) {
        log_error(source_path, 129, 2, -92, "couldn't attach to global config-status=%d", status);
        return not_registered;
    }
    const std::int16_t id = SrrNameAttach(0, task_name);
    if (id == -1)
        log_error(source_path, 145, 70, 0, "aborting - couldn't register <%s> name", task_name);
    return id;
}
