// The way of a sample's time: through the order of datagrams and samples, the feed and the library
// itself, to the time of the value.

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "host/standin/variable_store.h"
#include "table.h"
#include "task/intake.h"
#include "task/output/timing_watch.h"
#include "task/output/value_observer.h"
#include "task/worker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>

namespace {

using namespace std::chrono_literals;
using halmor_standin::VariableKind;
using halmor_standin::VariableStore;
using std::chrono::nanoseconds;

constexpr task::Arrival beginning{1h};

// A packet of list 0 or 1: timestamp and one byte.
table::Bytes sample(int list, nanoseconds slaveTime, std::uint16_t ctr, std::uint8_t value) {
    table::Bytes packet = {0, static_cast<std::uint8_t>(list)};
    for (int i = 0; i < 4; ++i)
        packet.push_back(static_cast<std::uint8_t>(slaveTime.count() >> 8 * i));
    packet.push_back(value);
    return table::message(packet, ctr);
}

// The library with two stamped lists, behind the task's intake.
class Pipeline : public halmor_standin::WriteObserver {
  public:
    explicit Pipeline(int hold)
        : worker(std::in_place, (define(), daq)), intake(true, nullptr, 1ms * hold, times) {
        VariableStore::observe(this);
    }
    ~Pipeline() override { VariableStore::observe(nullptr); }

    void written(const halmor_standin::Variable& variable, double value,
                 const timespec& time) override {
        times.take(variable, time);
        came.emplace_back(static_cast<int>(value), 1s * time.tv_sec + 1ns * time.tv_nsec);
    }
    void finish() {
        intake.flush();
        while (XCPFrameBuffer.size() > 0)
            std::this_thread::yield();
        worker.reset(); // which finishes its frame
    }

    api_xcp_daq daq;
    task::SampleTimeWatch times;
    std::vector<std::pair<int, nanoseconds>> came; // value and sample time; the worker's
    std::optional<task::Worker> worker;
    task::Intake intake;

  private:
    static void define() {
        VariableStore::instance().define("a", VariableKind::real, "");
        VariableStore::instance().define("b", VariableKind::real, "");
        table::add_plain("a", 0, 0, 0, 1, MODE_TIMESTAMP);
        table::add_plain("b", 1, 0, 0, 1, MODE_TIMESTAMP);
    }
};

// Whatever the slave's clock does, sample times are as far apart as the samples were. Of each wrap
// the library's rule loses a nanosecond.
TEST(SampleTime, GoesOnAcrossWrapsPausesAndSessions) {
    struct Sent {
        nanoseconds truth;
        int value;
    };
    std::mt19937 random{5};
    Pipeline run(10);
    std::vector<Sent> sent;
    nanoseconds truth = 0s;
    nanoseconds begin = 3s; // of the slave's clock
    std::uint16_t ctr = 100;
    const auto send = [&](int list, nanoseconds step) {
        truth += step;
        const int value = static_cast<int>(sent.size() % 256);
        run.intake.take(sample(list, begin + truth, ctr++, static_cast<std::uint8_t>(value)),
                        beginning + truth + 1us * (random() % 20'000));
        sent.push_back({truth, value});
    };
    for (int i = 0; i < 5000; ++i)
        send(i % 7 == 0 ? 1 : 0, 1us * (random() % 10'000));
    send(0, 10s); // longer than a timestamp
    send(0, 4ms);
    send(1, 3min);
    for (const nanoseconds off : {nanoseconds(100ms), nanoseconds(2500ms), nanoseconds(60s)}) {
        const std::size_t before = sent.size();
        truth += off;
        begin = 1s * (random() % 100) - truth;
        ctr = 0;
        run.intake.begin_session("switched off");
        for (int i = 0; i < 100; ++i)
            send(i % 3 == 0 ? 1 : 0, 1ms);
        EXPECT_EQ(before + 100, sent.size());
    }
    truth += 700ms; // and by itself, without a word
    begin = 40s - truth;
    ctr = 30000;
    for (int i = 0; i < 100; ++i)
        send(0, 1ms);
    run.finish();

    ASSERT_EQ(run.came.size(), sent.size());
    for (std::size_t i = 0; i < sent.size(); ++i) {
        const nanoseconds off =
            run.came[i].second - run.came[0].second - (sent[i].truth - sent[0].truth);
        ASSERT_EQ(run.came[i].first, sent[i].value) << i;
        // By the host's clock after a session's beginning, which the way of its datagrams shifts.
        ASSERT_LE(std::abs(off.count()), i < 5003 ? 100 : 100'000'000) << i;
        ASSERT_GE(run.came[i].second, run.came[i == 0 ? 0 : i - 1].second) << i;
    }
    EXPECT_EQ(run.times.gaps(), 4U);
    EXPECT_EQ(run.times.jumps(), 2U) << "the pauses, which nobody had announced";
    EXPECT_EQ(run.intake.restarts(), 1U);
    const auto counts = run.intake.counts();
    EXPECT_EQ(counts.missing + counts.gaps + counts.repeated, 0U);
    EXPECT_EQ(run.intake.order().raised, 0U);
    ASSERT_EQ(run.times.first_gaps().size(), 4U);
    EXPECT_EQ(run.times.first_gaps()[2].why, "switched off");
    EXPECT_GE(run.times.first_gaps()[2].to.tv_sec - run.times.first_gaps()[2].from.tv_sec, 59);
}

// What comes within the hold goes on in the order of its CTR; a lost one costs the hold.
TEST(DatagramOrder, PutsRightWhatWasOvertakenOrCameTwice) {
    std::mt19937 random{7};
    struct Sent {
        task::Arrival arrival;
        table::Bytes payload;
    };
    std::vector<Sent> arriving;
    std::vector<int> expected;
    for (int i = 0; i < 20'000; ++i) {
        table::Bytes payload;
        for (int message = 0; message < 3; ++message)
            for (const std::uint8_t byte :
                 sample(0, 0s, static_cast<std::uint16_t>(3 * i + message), 0))
                payload.push_back(byte);
        if (random() % 50 == 0)
            continue; // lost
        // Before the first nothing is known of the counter.
        arriving.push_back({beginning + 1ms * i + 1us * (i == 0 ? 0 : random() % 9000), payload});
        expected.push_back(i);
    }
    std::stable_sort(arriving.begin(), arriving.end(),
                     [](const Sent& a, const Sent& b) { return a.arrival < b.arrival; });
    std::vector<int> came;
    task::DatagramOrder order(10ms, [&](std::span<const std::uint8_t> payload, task::Arrival) {
        const int ctr = payload[2] | payload[3] << 8;
        const int turn = (static_cast<int>(came.size()) * 3 * 50 / 49 + 32768 - ctr) / 65536;
        came.push_back((ctr + 65536 * turn) / 3);
    });
    for (const Sent& each : arriving) {
        order.take(each.payload, each.arrival);
        if (random() % 100 == 0)
            order.take(each.payload, each.arrival);
    }
    order.flush();
    // Twice is twice; what is left of them is what was sent, in its order.
    std::vector<int> once;
    for (const int number : came)
        if (once.empty() || number > once.back())
            once.push_back(number);
    EXPECT_EQ(once, expected);
    EXPECT_GT(order.put_right(), 1000U);
}

TEST(TimingWatch, TellsDriftFromJumpsAndCountsWhatACycleHas) {
    std::mt19937 random{11};
    task::TimingWatch watch;
    const auto run = [&](int samples, double rate, nanoseconds ahead) {
        for (int i = 0; i < samples; ++i) {
            const nanoseconds host = 10ms * i;
            const auto slave = static_cast<std::int64_t>(static_cast<double>(host.count()) * rate);
            if (i % 100 != 50) // one of a hundred is not taken
                watch.take(1, slave + ahead.count(), beginning + host + 1us * (random() % 30'000));
        }
    };
    run(3000, 1.0002, 5s);
    watch.begin_session();
    run(3000, 1.0002, 90s);
    auto clocks = watch.clocks();
    EXPECT_NEAR(clocks.drift_ppm, 200, 20);
    EXPECT_NEAR(clocks.seconds, 58, 2.1);
    EXPECT_EQ(clocks.jumps, 0U);
    EXPECT_EQ(watch.samples()[1], 5940U);
    EXPECT_EQ(watch.samples()[0], 0U);
    EXPECT_NEAR(static_cast<double>(watch.spans().nanoseconds) / 1e9, 59.99, 0.02);
    EXPECT_EQ(watch.spans().sessions, 2U);

    watch.begin_session();
    for (int i = 0; i < 600; ++i)
        watch.take(0, nanoseconds(10ms * i + (i < 300 ? 0ms : 500ms)).count(),
                   beginning + 10ms * i);
    clocks = watch.clocks();
    EXPECT_EQ(clocks.jumps, 1U);
    EXPECT_NEAR(clocks.largestJump, 0.5, 0.01);
    EXPECT_NEAR(clocks.drift_ppm, 200, 20) << "a jump is no drift";
}

TEST(LimitWatch, NamesWhatLeftItsRange) {
    auto& speed = VariableStore::instance().define("speed", VariableKind::real, "");
    auto& other = VariableStore::instance().define("other", VariableKind::real, "");
    task::LimitWatch watch({{"speed", {0, 100}}});
    int second = 1;
    for (const double value : {0.0, 100.0, 100.5, -3.0, double{NAN}, 130.0})
        watch.take(speed, value, {second++, 5});
    watch.take(other, 1e300, {1, 0});
    EXPECT_EQ(watch.lines(),
              (std::vector<std::string>{"speed: 3 values outside of 0 to 100, the first at "
                                        "3.000000005, from -3 to 130"}));
}

} // namespace
