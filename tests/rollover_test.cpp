// The sample time, from the first timestamp on. Every test is a process of its own, so each starts
// with the first call.

#include "api_xcp_daq.h"
#include "host_double.h"

#include <gtest/gtest.h>

using host_double::host;

bool operator==(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

void PrintTo(const timespec& time, std::ostream* out) {
    *out << time.tv_sec << " s " << time.tv_nsec << " ns";
}

namespace {

// A caller with a running sample time: the first call does not anchor it.
class Rollover : public testing::Test {
  protected:
    std::uint32_t previous = 0;
    timespec corrected{100, 0};
    timespec base{5000, 7};

    std::int64_t call(std::uint32_t timestamp) {
        return calculate_rollover(timestamp, &previous, &corrected, &base);
    }
    std::int64_t call_after(std::uint32_t p, std::uint32_t timestamp) {
        previous = p;
        return call(timestamp);
    }
    // As if a packet had just been stamped.
    void establish() {
        call_after(1, 1);
        corrected = {100, 0};
    }
};

TEST_F(Rollover, AdvancesByTheDifference) {
    EXPECT_EQ(call_after(50, 100), 50);
    EXPECT_EQ(corrected, (timespec{100, 50}));
    EXPECT_EQ(previous, 100U);
}

TEST_F(Rollover, AWrapCountsOneTickLess) {
    EXPECT_EQ(call_after(4294967040, 16), 271);
    EXPECT_EQ(corrected, (timespec{100, 271}));
}

TEST_F(Rollover, OnlyAWrapCarriesWholeSeconds) {
    EXPECT_EQ(call_after(1000, 500), 294966795);
    EXPECT_EQ(corrected, (timespec{104, 294966795}));

    corrected = {10, 999999000};
    EXPECT_EQ(call_after(0, 2500000000), 2500000000);
    EXPECT_EQ(corrected, (timespec{13, 499999000}));
}

TEST_F(Rollover, APauseOfMoreThanThreeSecondsTakesTheHostsClock) {
    establish();
    host().clock.tv_sec += 3;
    EXPECT_EQ(call(2), 1) << "exactly 3 s are no pause";
    host().clock.tv_sec += 5;
    EXPECT_EQ(call(3), 5000000000);
    EXPECT_EQ(corrected, host().clock);
    EXPECT_EQ(call(10), 7) << "and the slave's clock goes on from there";
    EXPECT_EQ(corrected.tv_nsec, 7);
}

TEST_F(Rollover, ThePauseIsRoundedDownBeforeItIsComparedWithTheCarry) {
    host().clock.tv_nsec = 900;
    establish();
    host().clock.tv_sec += 5;
    host().clock.tv_nsec = 100;
    EXPECT_EQ(call(2), 4999999200) << "4 whole seconds against none carried";
    EXPECT_EQ(corrected, host().clock);

    host().clock.tv_sec += 5;
    host().clock.tv_nsec = 0;
    corrected = {100, 0};
    EXPECT_EQ(call_after(1000, 500), 294966795) << "4 whole seconds, all of them carried";
    EXPECT_EQ(corrected, (timespec{104, 294966795}));
}

TEST_F(Rollover, AWrapThatCarriesFewerSecondsThanThePauseResynchronises) {
    establish();
    host().clock.tv_sec += 4;
    EXPECT_EQ(call_after(2000000000, 500), 4000000000);
    EXPECT_EQ(corrected, host().clock);
}

TEST_F(Rollover, TheFirstTimestampStandsForTheBase) {
    corrected = {};
    EXPECT_EQ(call(3000000000), 3000000000);
    EXPECT_EQ(corrected, base);
    EXPECT_EQ(call(3000000010), 10);
    EXPECT_EQ(corrected, (timespec{5000, 17}));
    EXPECT_EQ(base, (timespec{5000, 7}));
}

TEST_F(Rollover, OnlyTheFirstCallAnchors) {
    call_after(0, 5);
    EXPECT_EQ(corrected, (timespec{100, 5})) << "a running sample time is kept";
    corrected = {};
    call_after(0, 5);
    EXPECT_EQ(corrected, (timespec{0, 5}));
}

TEST_F(Rollover, ACallerWithATimestampIsNotAnchored) {
    corrected = {};
    call_after(5, 7);
    EXPECT_EQ(corrected, (timespec{0, 2}));
}

TEST_F(Rollover, WithoutABaseNothingIsAnchored) {
    corrected = {};
    EXPECT_EQ(calculate_rollover(7, &previous, &corrected, nullptr), 7);
    EXPECT_EQ(corrected, (timespec{0, 7}));
}

} // namespace
