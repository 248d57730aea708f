// Registration: the order of the host's calls, and which of them a failure suppresses.

#include "api_xcp_daq.h"
#include "host_double.h"

#include <gtest/gtest.h>

using host_double::host;
using Calls = std::vector<std::string>;

namespace {

const Calls up_to_locate = {"link_to_memory 1", "_setsid", "join_layer 3", "get_TLS_tid",
                            "_qnx_name_locate 0 bench 0"};

Calls followed_by(const Calls& more) {
    Calls calls = up_to_locate;
    calls.insert(calls.end(), more.begin(), more.end());
    return calls;
}

std::int32_t init(short priority = 0) {
    char name[] = "bench";
    int event = 0;
    int ignored = 99;
    const std::int32_t result =
        xcp_daq_master_init(name, priority, &event, nullptr, &ignored, nullptr);
    EXPECT_EQ(ignored, 99);
    return result;
}

TEST(Registration, CallsTheHostInOrder) {
    host().nameId = 7;
    host().taskId = 4711;
    EXPECT_EQ(init(5), 7);
    EXPECT_EQ(xcp_master_pid, 4711);
    EXPECT_EQ(host().calls,
              followed_by({"copyn xcp_daq/xcp_daq_master_init 111 bench 50", "setprio 0 5",
                           "event_attach config 50", "SrrNameAttach 0 bench"}));
    EXPECT_EQ(Registered_name[0], '\0') << "the spec file's name is another object";
}

TEST(Registration, WithoutARunningHostNothingElseIsCalled) {
    host().running = 0;
    testing::internal::CaptureStdout();
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\n Halmor must be running to use this task \n");
    EXPECT_EQ(host().calls, Calls{"link_to_memory 1"});
    EXPECT_EQ(xcp_master_pid, 0);
}

TEST(Registration, AnyTaskOfThatNameIsRefused) {
    for (const int holder : {0, 12, -2}) {
        host().calls.clear();
        host().nameHolder = holder;
        EXPECT_EQ(init(5), -1);
        EXPECT_EQ(host().calls,
                  followed_by({"log_error xcp_daq/xcp_daq_master_init 101 66 0 aborting - "
                               "there is already a <bench> version running"}));
    }
}

TEST(Registration, OnlyPrioritiesFromOneToNineteenAreSet) {
    const auto sets = [](short priority) {
        host().calls.clear();
        init(priority);
        return std::count_if(host().calls.begin(), host().calls.end(),
                             [](const auto& call) { return call.starts_with("setprio"); });
    };
    EXPECT_EQ(sets(1) + sets(19), 2);
    EXPECT_EQ(sets(0) + sets(-1) + sets(20) + sets(-32768), 0);
}

TEST(Registration, AFailedEventEndsIt) {
    host().eventStatus = -5;
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(
        host().calls,
        followed_by({"copyn xcp_daq/xcp_daq_master_init 111 bench 50", "event_attach config 50",
                     "log_error xcp_daq/xcp_daq_master_init 129 2 -92 couldn't attach to "
                     "global config-status=-5"}));
}

TEST(Registration, OnlyMinusOneIsARefusedName) {
    host().nameId = -1;
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(host().calls.back(), "log_error xcp_daq/xcp_daq_master_init 145 70 0 aborting - "
                                   "couldn't register <bench> name");
    host().nameId = -300;
    EXPECT_EQ(init(), -300);
    EXPECT_EQ(host().calls.back(), "SrrNameAttach 0 bench");
}

} // namespace
