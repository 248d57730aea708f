// Every value of recorded slaves, checked by the rules in data/README.md.

#include "api_xcp_daq_threads.h"
#include "capture_text.h"
#include "host/standin/variable_store.h"
#include "task/configuration/configuration.h"
#include "task/sources/capture_file.h"
#include "task_program.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <cmath>
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

// ---- whole sessions, by the commands in them ----

// Of the cycle counter in the same sample: f_cnt_u32 or s_cnt_u32.
using Law = double (*)(std::int64_t);
struct Signal {
    Law law;
    double tolerance;
};
const std::map<std::string, Signal> laws = {
    {"f_cnt_u32", {[](std::int64_t n) { return double(n); }, 0}},
    {"f_cnt_u8", {[](std::int64_t n) { return double(u8(255 - n)); }, 0}},
    {"f_cnt_u16", {[](std::int64_t n) { return double(u16(7 * n + 3)); }, 0}},
    {"f_cnt_u64", {[](std::int64_t n) { return 21474836480.0 + double(n); }, 0}},
    {"f_big_u64", {[](std::int64_t n) { return double(0x0123456789000000 + 3 * n); }, 16}},
    {"f_ramp_i8", {[](std::int64_t n) { return double(n % 201 - 100); }, 0}},
    {"f_ramp_i16", {[](std::int64_t n) { return double(13 * n % 60001 - 30000); }, 0}},
    {"f_ramp_i32", {[](std::int64_t n) { return -double(1000003 * n % 2000000011) - 1; }, 0}},
    {"f_ramp_i64", {[](std::int64_t n) { return -5e9 - 3 * double(n); }, 0}},
    {"f_sine_f32",
     {[](std::int64_t n) { return 100 * std::sin(M_PI * int(n % 1000) / 500); }, 1e-5}},
    {"f_sine_f64",
     {[](std::int64_t n) { return 1000 * std::cos(M_PI * int(n % 1000) / 500) + 0.001; }, 1e-9}},
    {"f_lin_u16", {[](std::int64_t n) { return 0.0125 * int(3 * n % 10001) - 40; }, 1e-9}},
    {"f_lin_i16", {[](std::int64_t n) { return 0.25 * int(5 * n % 8001 - 4000) + 10; }, 1e-9}},
    {"f_neg_u8", {[](std::int64_t n) { return -0.5 * u8(n) + 100; }, 0}},
    {"f_lim_u16", {[](std::int64_t n) { return 0.1 * int(n % 5001); }, 1e-9}},
    {"f_state_u8", {[](std::int64_t n) { return double(n / 100 % 4); }, 0}},
    {"f_linf_f32", {[](std::int64_t n) { return 0.5 * int(n % 4096) + 1; }, 0}},
    {"f_obj.cnt", {[](std::int64_t n) { return double(u32(0x80000000 + 5 * n)); }, 0}},
    {"f_obj.val", {[](std::int64_t n) { return double(n % 100000 - 50000); }, 0}},
    {"s_cnt_u32", {[](std::int64_t m) { return double(m); }, 0}},
    {"s_lin_u8", {[](std::int64_t m) { return u8(m) - 55.0; }, 0}},
    {"s_cnt_u16", {[](std::int64_t m) { return double(u16(257 * m)); }, 0}},
    {"s_cnt_u64", {[](std::int64_t m) { return 0x1p40 + double(m); }, 0}},
    {"s_ramp_i32", {[](std::int64_t m) { return -7 * double(m % 100000000) - 2; }, 0}},
    {"s_lin_i16", {[](std::int64_t m) { return 0.001 * int(11 * m % 40001 - 20000); }, 1e-9}},
    {"s_sine_f32", {[](std::int64_t m) { return 10 * std::sin(M_PI * int(m % 250) / 125); }, 1e-6}},
    {"s_ramp_f64", {[](std::int64_t m) { return double(m) * 0.001 - 50; }, 1e-9}},
    {"s_obj.cnt", {[](std::int64_t m) { return double(u32(3 * m)); }, 0}},
    {"s_obj.val", {[](std::int64_t m) { return -0.5 * int(m % 4000); }, 0}},
};

std::string data(const std::string& name) {
    return std::string(XCP_DAQ_TEST_DATA) + "/" + name;
}

struct Decoded {
    TaskProgram::End end;
    std::vector<capture::Row> rows;
};

Decoded decode(const std::string& path, const std::string& port) {
    const TemporaryFile spec("@XCP_SERVER\n127.0.0.1:" + port +
                             "\n$\n@A2L_FILE\nsessions.a2l\n$\n" +
                             "@A2L_FILEPATH\n" XCP_DAQ_TEST_DATA "\n$\n");
    const TemporaryFile record;
    auto end = run_task(
        {spec.path(), "--pcap", path, "--pace", "max", "--quiet", "--record", record.path()});
    return {end, capture::rows_of(record.text())};
}

// Values that are as their laws say, by the first letter of their names.
std::map<char, int> lawful_values(const std::vector<capture::Row>& rows) {
    std::map<char, int> counts;
    for (const capture::Row& row : rows)
        for (const auto& [name, value] : row.values) {
            const auto law = laws.find(name);
            const auto counter = row.values.find(name[0] == 'f' ? "f_cnt_u32" : "s_cnt_u32");
            if (law == laws.end() || counter == row.values.end())
                continue;
            const auto n = static_cast<std::int64_t>(counter->second);
            EXPECT_NEAR(value, law->second.law(n), law->second.tolerance) << name << " at " << n;
            ++counts[name[0]];
        }
    return counts;
}

// The sample times are the slave's clock, but for a nanosecond that a wrap of its low half loses.
void expect_clock(const std::vector<capture::Row>& rows, const char* name, std::int64_t tick_ns) {
    const capture::Row* first = nullptr;
    for (const capture::Row& row : rows) {
        const auto clock = row.values.find(name);
        if (clock == row.values.end())
            continue;
        first = first == nullptr ? &row : first;
        const double ticks = clock->second - first->values.at(name);
        EXPECT_NEAR(static_cast<double>(row.time_ns - first->time_ns),
                    ticks * static_cast<double>(tick_ns), 1.0)
            << name;
    }
}

TEST(Recording, IsDecodedByTheCommandsInIt) {
    const struct {
        const char* file;
        const char* port;
        std::int64_t tick_ns;
        int fast, slow; // samples
    } cases[] = {{"session_idf2.pcap", "5561", 1, 558, 55},
                 {"session_idf4.pcap", "5562", 1, 561, 57},
                 {"session_us4.pcap", "5563", 1000, 560, 56},
                 {"session_skew.pcap", "5565", 1, 559, 56}};
    for (const auto& [file, port, tick_ns, fast, slow] : cases) {
        const auto [end, rows] = decode(data(file), port);
        EXPECT_NE(end.output.find("trust         yes"), std::string::npos)
            << end.output << end.errors;
        const std::map<char, int> expected = {{'f', 19 * fast}, {'s', 10 * slow}};
        EXPECT_EQ(lawful_values(rows), expected) << file;
        expect_clock(rows, "f_clk_u64", tick_ns);
        expect_clock(rows, "s_clk_u64", tick_ns);
    }
}

// Three sessions of one slave, the second with a layout of its own and, behind it, packets that are
// still of it after a new CONNECT; before it every kind of command is refused.
TEST(Recording, DecodesSessionsOneAfterTheOther) {
    const auto bytes = [](const char* name) {
        std::ifstream file(data(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    constexpr std::size_t file_header = 24;
    const std::string session = bytes("session_idf4.pcap");
    const TemporaryFile all(session + bytes("session_errors.pcap").substr(file_header) +
                            session.substr(file_header));
    const auto [end, rows] = decode(all.path(), "5562");
    EXPECT_NE(end.output.find("note: 37 DAQ packets between two sessions: not decoded"),
              std::string::npos)
        << end.output << end.errors;
    EXPECT_NE(end.output.find("CTR gaps      0 "), std::string::npos) << end.output;
    const std::map<char, int> expected = {{'f', 2 * 19 * 561 + 4 * 966}, {'s', 2 * 10 * 57}};
    EXPECT_EQ(lawful_values(rows), expected);
}

} // namespace
