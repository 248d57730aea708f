// Registration: the order of the host's calls, and which of them a failure suppresses.

#include "api_xcp_daq.h"
#include "host_double.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

using host_double::host;

namespace {

const std::string linked = "link_to_memory 1\n";
const std::string located =
    linked + "_setsid\njoin_layer 3\nget_TLS_tid\n_qnx_name_locate 0 bench 0 null\n";
const std::string copied = located + "copyn xcp_daq/xcp_daq_master_init 111 bench 50\n";
const std::string attached = "event_attach config 50\n";
const std::string error = "log_error xcp_daq/xcp_daq_master_init ";
const std::string taken =
    error + "101 66 0 aborting - there is already a <bench> version running\n";
const std::string noEvent = error + "129 2 -92 couldn't attach to global config-status=-5\n";
const std::string noName = error + "145 70 0 aborting - couldn't register <bench> name\n";
const std::string named = attached + "SrrNameAttach 0 bench\n";

TEST(Registration, CallsTheHostInOrderUpToTheFailure) {
    struct Case {
        host_double::Answers answers;
        short priority;
        std::int32_t result;
        std::string calls;
    };
    const Case cases[] = {
        {{.running = 0}, 5, -1, linked},
        {{.nameHolder = 0}, 5, -1, located + taken},
        {{.nameHolder = 12}, 5, -1, located + taken},
        {{.nameHolder = -2}, 5, -1, located + taken},
        {{.nameId = 7}, 1, 7, copied + "setprio 0 1\n" + named},
        {{.nameId = 7}, 19, 7, copied + "setprio 0 19\n" + named},
        {{.nameId = 7}, 0, 7, copied + named},
        {{.nameId = 7}, -1, 7, copied + named},
        {{.nameId = 7}, 20, 7, copied + named},
        {{.nameId = 7}, -32768, 7, copied + named},
        {{.eventStatus = -5}, 0, -1, copied + attached + noEvent},
        {{.nameId = -1}, 0, -1, copied + named + noName},
        {{.nameId = -300}, 0, -300, copied + named},
    };
    for (const Case& c : cases) {
        host().answers = c.answers;
        host().calls.clear();
        xcp_master_pid = 0;
        char name[] = "bench";
        int event = 0;
        int ignored = 99;
        std::int32_t result = 0;
        const std::string output = output_of([&] {
            result = xcp_daq_master_init(name, c.priority, &event, nullptr, &ignored, nullptr);
        });
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(host().calls, c.calls);
        const bool running = c.answers.running != 0;
        EXPECT_EQ(output, running ? "" : "\n Halmor must be running to use this task \n");
        EXPECT_EQ(xcp_master_pid, running ? 4711 : 0);
        EXPECT_EQ(event, c.calls.find(attached) == std::string::npos ? 0 : 17);
        EXPECT_EQ(ignored, 99);
    }
    EXPECT_EQ(Registered_name[0], '\0') << "the spec file's name is another object";
}

} // namespace
