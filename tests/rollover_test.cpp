// The sample time, from the first timestamp on. Every test is a process of its own, so each starts
// with the first call.

#include "api_xcp_daq.h"
#include "host_double.h"

#include <gtest/gtest.h>

#include <optional>

using host_double::host;
using host_double::Time;

namespace {

timespec base{5000, 7};

struct Call {
    std::uint32_t previous;
    timespec corrected;
    std::int64_t result = 0;

    Time at(std::uint32_t timestamp, timespec* first = &base) {
        result = calculate_rollover(timestamp, &previous, &corrected, first);
        EXPECT_EQ(previous, timestamp);
        return {corrected.tv_sec, corrected.tv_nsec};
    }
};

TEST(Rollover, AdvancesByTheSlavesClockUnlessThePauseWasLong) {
    struct Case {
        const char* what;
        timespec pause;
        std::uint32_t previous, timestamp;
        timespec corrected;
        std::int64_t result;
        std::optional<Time> expected; // none: the host's clock
    };
    constexpr std::optional<Time> resynchronised;
    const Case cases[] = {
        {"the difference", {0, 0}, 50, 100, {100, 0}, 50, Time(100, 50)},
        {"a wrap is one tick less", {0, 0}, 4294967040, 16, {100, 0}, 271, Time(100, 271)},
        {"a wrap carries", {0, 0}, 1000, 500, {100, 0}, 294966795, Time(104, 294966795)},
        {"no wrap", {0, 0}, 0, 2500000000, {9, 999999000}, 2500000000, Time(12, 499999000)},
        {"up to a whole second", {0, 0}, 0, 1000, {9, 999999000}, 1000, Time(10, 0)},
        {"exactly 3 s are no pause", {3, 0}, 1, 2, {100, 0}, 1, Time(100, 1)},
        {"3 s and a little are none", {3, 99}, 1, 2, {100, 0}, 1, Time(100, 1)},
        {"4 s are", {4, 0}, 1, 2, {100, 0}, 4000000000, resynchronised},
        {"rounded down to 4 s", {5, -800}, 1, 2, {100, 0}, 4999999200, resynchronised},
        {"4 s, all carried", {5, -800}, 1000, 500, {100, 0}, 294966795, Time(104, 294966795)},
        {"4 s, 2 s of them carried", {4, 0}, 2000000000, 500, {9, 0}, 4000000000, resynchronised},
    };
    for (const Case& c : cases) {
        host().clock.tv_nsec = 900;
        Call{1, {100, 0}}.at(1); // as if a packet had just been stamped
        host().clock.tv_sec += c.pause.tv_sec;
        host().clock.tv_nsec += c.pause.tv_nsec;
        Call call{c.previous, c.corrected};
        EXPECT_EQ(call.at(c.timestamp),
                  c.expected.value_or(Time(host().clock.tv_sec, host().clock.tv_nsec)))
            << c.what;
        EXPECT_EQ(call.result, c.result) << c.what;
    }
}

struct FirstCall {
    const char* name;
    std::uint32_t previous;
    timespec corrected;
    timespec* base;
    Time expected;
};

const FirstCall first_calls[] = {
    {"StandsForTheBase", 0, {0, 0}, &base, {5000, 7}},
    {"KeepsARunningSampleTime", 0, {100, 0}, &base, {103, 9}},
    {"GoesOnFromAnEarlierTimestamp", 9, {0, 0}, &base, {3, 0}},
    {"HasNoBase", 0, {0, 0}, nullptr, {3, 9}},
};

class FirstTimestamp : public testing::TestWithParam<FirstCall> {};

TEST_P(FirstTimestamp, AloneMayBeAnchored) {
    Call call{GetParam().previous, GetParam().corrected};
    EXPECT_EQ(call.at(3000000009, GetParam().base), GetParam().expected);
    EXPECT_EQ(call.result, 3000000009 - GetParam().previous);
    const auto [seconds, nanoseconds] = GetParam().expected;
    EXPECT_EQ(call.at(3000000019, GetParam().base), Time(seconds, nanoseconds + 10));
    EXPECT_EQ(Time(base.tv_sec, base.tv_nsec), Time(5000, 7));

    EXPECT_EQ((Call{0, {0, 0}}.at(5)), Time(0, 5)) << "no first call any more";
}

INSTANTIATE_TEST_SUITE_P(Of, FirstTimestamp, testing::ValuesIn(first_calls),
                         [](const auto& call) { return std::string(call.param.name); });

} // namespace
