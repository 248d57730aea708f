// Every value of a recorded slave, checked by the rules in data/README.md.

#include "api_xcp_daq_threads.h"
#include "host/standin/variable_store.h"
#include "task/configuration/configuration.h"
#include "task/sources/capture_file.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <thread>

using halmor_standin::Variable;

namespace {

using Rule = std::function<std::uint64_t(std::uint64_t)>;
using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

const std::map<std::string, Rule> rules = {
    {"f_u8", [](u64 n) { return u8(n); }},
    {"f_u16", [](u64 n) { return u16(7 * n); }},
    {"f_u32", [](u64 n) { return u32(1000003 * n); }},
    {"f_u64", [](u64 n) { return n * 0x100000001; }},
    {"f_u8b", [](u64 n) { return u8(255 - n); }},
    {"f_u16b", [](u64 n) { return u16(40503 * n + 1); }},
    {"f_u32b", [](u64 n) { return u32(2654435761 * n); }},
    {"f_u64b", [](u64 n) { return (n * 0x9E3779B97F4A7C15) >> 1; }},
    {"f_u8c", [](u64 n) { return u8(13 * n + 5); }},
    {"f_u16c", [](u64 n) { return u16(n); }},
    {"f_u64c", [](u64 n) { return (u64{1} << 63) + n; }},
    {"s_u8", [](u64 m) { return u8(m); }},
    {"s_u16", [](u64 m) { return u16(7 * m); }},
    {"s_u32", [](u64 m) { return u32(1000003 * m); }},
    {"s_u64", [](u64 m) { return m * 0x100000001; }},
    {"s_u8b", [](u64 m) { return u8(3 * m + 1); }},
    {"s_u16b", [](u64 m) { return u16(65535 - m); }},
    {"s_u32b", [](u64 m) { return u32(m * m); }},
    {"s_u64b", [](u64 m) { return (m * 0xD1342543DE82EF95) >> 1; }},
    {"g_u8", [](u64 n) { return u8(n + 100); }},
    {"g_u16", [](u64 n) { return u16(3 * n + 17); }},
};

struct Write {
    std::string name;
    double value;
    timespec time;

    std::int64_t nanoseconds() const { return time.tv_sec * 1'000'000'000 + time.tv_nsec; }
    u64 integer() const { return static_cast<u64>(value); }
};

class Collector : public halmor_standin::WriteObserver {
  public:
    void written(const Variable& variable, double value, const timespec& sampleTime) override {
        writes.push_back({variable.name(), value, sampleTime});
    }
    std::vector<Write> writes; // the worker's until it has been stopped
};

std::vector<Write> run() {
    task::Options options;
    options.spec = XCP_DAQ_TEST_DATA "/slave.spec";
    options.table = XCP_DAQ_TEST_DATA "/slave.table";
    static api_xcp_daq daq;
    options.source = task::SourceKind::capture;
    task::configure(options, task::load_spec(daq, options),
                    task::read_measurement_table(options.table));
    Collector collector;
    halmor_standin::VariableStore::observe(&collector);
    task::CaptureFile capture(XCP_DAQ_TEST_DATA "/slave_excerpt.pcap",
                              task::server_endpoint(options), false);
    daq.startWorkerThreads();
    api_xcp_daq::enableDAQProcessing();
    struct : task::DatagramSink {
        void take(std::span<const std::uint8_t> payload, task::Arrival) noexcept override {
            api_xcp_daq_push_frame(payload.data(), payload.size());
        }
        void begin_session(std::string_view) noexcept override {}
    } library;
    capture.deliver_all({}, library);
    while (XCPFrameBuffer.size() > 0)
        std::this_thread::yield();
    daq.stopWorkerThreads();
    return collector.writes;
}

// The counter that the rules of a value refer to: in its own sample, or, for list 2, in the sample
// of list 0 with the same sample time.
class Counters {
  public:
    explicit Counters(const std::vector<Write>& writes) {
        for (const Write& write : writes)
            if (write.name == "f_n")
                fastAt_[write.nanoseconds()] = write.integer();
    }
    u64 counter_for(const Write& write) {
        if (write.name == "f_n" || write.name == "s_n") {
            auto& latest = latest_[write.name[0]];
            if (latest) {
                EXPECT_EQ(write.integer(), *latest + 1);
            }
            latest = write.integer();
        }
        return write.name[0] == 'g' ? fastAt_.at(write.nanoseconds())
                                    : latest_.at(write.name[0]).value();
    }

  private:
    std::map<std::int64_t, u64> fastAt_;
    std::map<char, std::optional<u64>> latest_{{'f', {}}, {'s', {}}};
};

// Sample times advance with the slave's clock, but for the tick that each wrap of its low half
// loses.
class SlaveClock {
  public:
    void check(const Write& write) {
        if (!first_)
            first_ = write;
        const u64 wraps = (write.integer() >> 32) - (first_->integer() >> 32);
        EXPECT_EQ(write.nanoseconds() - first_->nanoseconds(),
                  static_cast<std::int64_t>(write.integer() - first_->integer() - wraps));
        wraps_ = wraps;
    }
    u64 wraps() const { return wraps_; }

  private:
    std::optional<Write> first_;
    u64 wraps_ = 0;
};

TEST(Recording, EveryValueIsWhatTheSlaveSent) {
    const std::vector<Write> writes = run();
    std::map<std::string, std::size_t> counts;
    Counters counters(writes);
    SlaveClock fastClock;
    SlaveClock slowClock;
    for (const Write& write : writes) {
        ++counts[write.name];
        const u64 n = counters.counter_for(write);
        if (const auto rule = rules.find(write.name); rule != rules.end()) {
            ASSERT_EQ(write.value, static_cast<double>(rule->second(n)))
                << write.name << " at " << n;
        } else if (write.name == "f_clk") {
            fastClock.check(write);
        } else if (write.name == "s_clk") {
            slowClock.check(write);
        }
    }
    EXPECT_EQ(counts.size(), rules.size() + 4);
    for (const auto& [name, count] : counts)
        EXPECT_EQ(count, counts.at(name[0] == 's' ? "s_n" : "f_n")) << name;
    EXPECT_GE(counts["s_n"], 100U);
    EXPECT_GE(fastClock.wraps(), 1U);
    std::printf("%zu values, %llu wraps of the timestamp\n", writes.size(),
                static_cast<unsigned long long>(fastClock.wraps()));
}

} // namespace
