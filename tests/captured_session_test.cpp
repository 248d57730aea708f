// Sessions that a capture holds: a master of few words with a simulated slave, in every form that
// packets have, with commands that are refused, lost or repeated.

#include "capture_text.h"
#include "simulated_slave/slave.h"
#include "task_program.h"
#include "temporary_file.h"
#include "xcp/commands.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <regex>

namespace {

using capture::Bytes;
using simulated_slave::Datagram;

constexpr std::uint64_t ms = 1'000'000; // in nanoseconds

struct Form {
    const char* identification;
    const char* order;
    const char* stamp;
};

std::string a2l_text(const Form& form) {
    const auto measurement = [](const std::string& name, const std::string& more) {
        return "/begin MEASUREMENT " + name + " \"\" " + more + " /end MEASUREMENT\n";
    };
    const std::string plain = " NO_COMPU_METHOD 0 0 -1e9 1e9 ECU_ADDRESS ";
    return std::string("ASAP2_VERSION 1 71 /begin PROJECT p \"\" /begin MODULE m \"\"\n") +
           "/begin MOD_COMMON \"\" BYTE_ORDER MSB_" + form.order + " /end MOD_COMMON " +
           "/begin IF_DATA XCP /begin PROTOCOL_LAYER 0x0104 1000 1000 1000 1000 1000 1000 1000 "
           "32 64 BYTE_ORDER_MSB_" +
           form.order + " ADDRESS_GRANULARITY_BYTE /end PROTOCOL_LAYER /begin DAQ DYNAMIC 0 6 0 " +
           "OPTIMISATION_TYPE_DEFAULT ADDRESS_EXTENSION_FREE IDENTIFICATION_FIELD_TYPE_" +
           form.identification +
           " GRANULARITY_ODT_ENTRY_SIZE_DAQ_BYTE 16 NO_OVERLOAD_INDICATION "
           "/begin TIMESTAMP_SUPPORTED " +
           form.stamp + " TIMESTAMP_FIXED /end TIMESTAMP_SUPPORTED " +
           "/begin EVENT \"fast\" \"f\" 0 DAQ 0xFF 1 6 0 /end EVENT "
           "/begin EVENT \"slow\" \"s\" 1 DAQ 0xFF 5 6 0 /end EVENT /end DAQ "
           "/begin XCP_ON_UDP_IP 0x0104 5555 ADDRESS \"10.0.0.5\" /end XCP_ON_UDP_IP "
           "/end IF_DATA\n" +
           measurement("speed", "UWORD" + plain + "0x1000 ECU_ADDRESS_EXTENSION 1") +
           measurement("count", "ULONG" + plain + "0x2000") +
           measurement("same", "SLONG" + plain + "0x2000") +
           measurement("level", "SBYTE" + plain + "0x2010") +
           measurement("field", "SWORD" + plain + "0x3000 MATRIX_DIM 2 3") +
           "/end MODULE /end PROJECT\n";
}

// An Ethernet frame with a datagram between the slave and its master.
Bytes frame(const Bytes& payload, bool fromSlave, std::uint8_t masterPort) {
    const auto size = static_cast<std::uint8_t>(payload.size() + 28);
    EXPECT_LT(payload.size() + 28, 256U);
    const std::uint8_t slaveEnd[] = {10, 0, 0, 5, 5555 >> 8, 5555 & 0xFF};
    const std::uint8_t masterEnd[] = {10, 0, 0, 9, 0x9C, masterPort};
    const auto* from = fromSlave ? slaveEnd : masterEnd;
    const auto* to = fromSlave ? masterEnd : slaveEnd;
    Bytes bytes = {0, 0,    0, 0, 0,    0, 0, 0, 0, 0,  0,  0, 8,
                   0, 0x45, 0, 0, size, 0, 0, 0, 0, 64, 17, 0, 0};
    bytes.insert(bytes.end(), from, from + 4);
    bytes.insert(bytes.end(), to, to + 4);
    for (const std::uint8_t byte :
         {from[4], from[5], to[4], to[5], std::uint8_t{0}, static_cast<std::uint8_t>(size - 20),
          std::uint8_t{0}, std::uint8_t{0}})
        bytes.push_back(byte);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

class Bench {
  public:
    explicit Bench(const Form& form)
        : order_(*form.order == 'F' ? xcp::ByteOrder::big : xcp::ByteOrder::little),
          a2l_(a2l_text(form)), file_(a2l_.path()),
          slave_(file_, {}, [this](const Datagram& datagram) { take(datagram); }) {}

    template <class Command>
    void ask(const Command& command) {
        Bytes payload;
        xcp::append_message(payload, ctr++, xcp::command_packet(command, order_));
        frames.push_back({now, frame(payload, false, masterPort)});
        slave_.take(payload, now);
        now += ms / 10;
    }
    void connect() {
        ask(xcp::Connect{});
        ask(xcp::GetDaqProcessorInfo{});
        ask(xcp::GetDaqResolutionInfo{});
    }
    void allocate(std::uint16_t lists, std::uint8_t odts, std::uint8_t entries) {
        ask(xcp::FreeDaq{});
        ask(xcp::AllocDaq{lists});
        for (std::uint16_t list = 0; list < lists; ++list)
            ask(xcp::AllocOdt{list, odts});
        for (std::uint16_t list = 0; list < lists; ++list)
            for (std::uint8_t odt = 0; odt < odts; ++odt)
                ask(xcp::AllocOdtEntry{list, odt, entries});
    }
    void write(std::uint16_t list, std::uint8_t odt, const std::vector<xcp::WriteDaq>& entries) {
        ask(xcp::SetDaqPtr{list, odt, 0});
        for (const xcp::WriteDaq& entry : entries)
            ask(entry);
    }
    void run(std::uint16_t lists, std::uint64_t duration) {
        for (std::uint16_t list = 0; list < lists; ++list) {
            ask(xcp::SetDaqListMode{xcp::SetDaqListMode::timestamp, list, list, 1, 0});
            ask(xcp::StartStopDaqList{xcp::StartStopDaqList::select, list});
        }
        ask(xcp::StartStopSynch{xcp::StartStopSynch::start_selected});
        for (const std::uint64_t end = now + duration; now < end; now += ms)
            slave_.advance(now);
        ask(xcp::StartStopSynch{xcp::StartStopSynch::stop_all});
    }

    // Runs the task over the capture; `lists` go into the spec file.
    TaskProgram::End decode(const std::string& lists = "", Arguments more = {}) const {
        const std::string path = a2l_.path();
        const TemporaryFile spec("@A2L_FILE\n" + path.substr(path.rfind('/') + 1) +
                                 "\n$\n@A2L_FILEPATH\n" + path.substr(0, path.rfind('/')) +
                                 "\n$\n" + lists);
        const TemporaryFile file(capture::file_of(1, frames));
        more.insert(more.begin(), {spec.path(), "--pcap", file.path(), "--quiet"});
        return run_task(more);
    }
    // The values that come, by name and in their order.
    std::map<std::string, std::vector<double>> values(const std::string& lists = "") const {
        const TemporaryFile record;
        const auto end = decode(lists, {"--pace", "max", "--hold", "0", "--record", record.path()});
        EXPECT_EQ(end.status, 0) << end.errors;
        std::map<std::string, std::vector<double>> values;
        for (const capture::Row& row : capture::rows_of(record.text()))
            for (const auto& [name, value] : row.values)
                values[name].push_back(value);
        return values;
    }

    std::uint64_t now = 0;
    std::uint16_t ctr = 1;
    std::uint8_t masterPort = 1;
    std::vector<capture::Frame> frames;
    std::map<std::string, std::vector<double>> sent; // by the slave, of each signal

  private:
    void take(const Datagram& datagram) {
        frames.push_back({now, frame(datagram.payload, true, masterPort)});
        for (const auto& [signal, physical] : datagram.values)
            sent[signal->name].push_back(physical);
    }

    const xcp::ByteOrder order_;
    const TemporaryFile a2l_;
    const a2l::File file_;
    simulated_slave::Slave slave_;
};

const xcp::WriteDaq speed{xcp::WriteDaq::no_bit, 2, 1, 0x1000};
const xcp::WriteDaq count{xcp::WriteDaq::no_bit, 4, 0, 0x2000};
const xcp::WriteDaq level{xcp::WriteDaq::no_bit, 1, 0, 0x2010};
const xcp::WriteDaq element{xcp::WriteDaq::no_bit, 2, 0, 0x300A}; // field[1][2]
const xcp::WriteDaq nowhere{xcp::WriteDaq::no_bit, 4, 0, 0x9000};
const Form usual = {"RELATIVE_BYTE", "LAST", "1 SIZE_DWORD UNIT_1NS"};

bool has(const std::string& text, const std::string& pattern) {
    return std::regex_search(text, std::regex(pattern));
}

TEST(CapturedSession, IsDecodedInEveryForm) {
    const Form forms[] = {usual,
                          {"RELATIVE_WORD_ALIGNED", "FIRST", "1 SIZE_DWORD UNIT_1US"},
                          {"RELATIVE_WORD", "FIRST", "10 SIZE_DWORD UNIT_1NS"},
                          {"ABSOLUTE", "FIRST", "1 SIZE_DWORD UNIT_100NS"}};
    for (const Form& form : forms) {
        Bench bench(form);
        bench.connect();
        bench.allocate(2, 2, 2);
        bench.write(0, 0, {speed, nowhere, level, count}); // the slave refuses two of these
        bench.write(0, 1, {count, element});
        bench.write(1, 0, {level, speed});
        bench.write(1, 1, {element, count});
        bench.run(2, 40 * ms);
        bench.sent.erase("same"); // "count" is the same bytes
        EXPECT_EQ(bench.sent.size(), 4U);
        EXPECT_EQ(bench.values(), bench.sent) << form.identification;
    }
}

// The second session writes other entries, from another port; its start is not answered at once.
// What comes between the sessions is not decoded.
TEST(CapturedSession, MayFollowAnotherOne) {
    Bench bench(usual);
    bench.connect();
    bench.allocate(1, 1, 2);
    bench.write(0, 0, {speed, level});
    bench.run(1, 20 * ms);
    const auto stray = std::find_if(bench.frames.begin(), bench.frames.end(), [](const auto& each) {
        return each.bytes[46] == 0 && each.bytes[26 + 3] == 5;
    });
    ASSERT_NE(stray, bench.frames.end());
    bench.masterPort = 2;
    bench.connect();
    bench.frames.push_back(capture::Frame(*stray));
    bench.allocate(1, 2, 1);
    bench.write(0, 0, {count});
    bench.write(0, 1, {speed});
    bench.run(1, 20 * ms);
    bench.sent.erase("same");
    EXPECT_EQ(bench.values(), bench.sent);

    // With lists in the spec file only what they name, under the variables' names.
    const std::string lists = "@LIST1\na DAQ any\ncount x counted\nlevel x -\nfield[0][0] x -\n$\n";
    const auto values = bench.values(lists);
    EXPECT_EQ(values.size(), 2U);
    EXPECT_EQ(values.at("counted"), bench.sent["count"]);
    EXPECT_EQ(values.at("level"), bench.sent["level"]);
    const auto checked = bench.decode(lists, {"--check"});
    for (const char* line : {"note: not measured in the capture: field.0..0.",
                             "note: 1 DAQ packets between two sessions: not decoded",
                             "session 2   frames .*, set-up 2, master 10.0.0.9:39938",
                             "DAQ list 0, ODT 1: 6 bytes; in a packet of 10, the timestamp",
                             "bytes   2 to   5  counted .* count at 0x00002000, extension 0"})
        EXPECT_TRUE(has(checked.output, line)) << line << " is not in\n" << checked.output;
}

// An answer that does not come, and a command that comes again and is taken twice.
TEST(CapturedSession, CountsWhatTheSlaveTook) {
    Bench bench(usual);
    bench.ask(xcp::GetStatus{}); // nobody is connected
    bench.connect();
    bench.allocate(1, 1, 3);
    bench.write(0, 0, {count});
    bench.ask(level);
    const capture::Frame late = bench.frames.back(); // its answer comes after the repetition
    bench.frames.pop_back();
    bench.ask(level);
    bench.frames.insert(bench.frames.end() - 1, late);
    bench.run(1, 10 * ms);
    // An entry twice is decoded once.
    bench.sent.erase("same");
    EXPECT_EQ(bench.values(), bench.sent);
}

TEST(CapturedSession, RefusesWithOneLine) {
    const struct {
        std::function<void(Bench&)> session;
        std::string lists;
        std::string cause;
    } cases[] = {
        {[](Bench&) {}, "", "no XCP command to the slave 10.0.0.5:5555 in it"},
        {[](Bench& bench) { bench.connect(); }, "",
         "no DAQ list of the slave 10.0.0.5:5555 is started in it: 3 commands, 3 of them taken by "
         "the slave, 0 refused"},
        {[](Bench& bench) {
             bench.connect();
             bench.allocate(1, 1, 1);
             bench.write(0, 0, {count});
             bench.run(1, 10 * ms);
             std::erase_if(bench.frames, [](const auto& each) {
                 return each.bytes[29] == 5 && each.bytes[46] < 0xC0;
             });
         },
         "", "no DAQ packet of the slave 10.0.0.5:5555 in a session"},
        {[](Bench& bench) {
             bench.connect();
             bench.allocate(1, 1, 1);
             bench.write(0, 0, {count});
             bench.run(1, 10 * ms);
         },
         "@LIST1\na DAQ any\nspeed x -\n$\n",
         "none of the 1 measured places is what the spec file's lists name"},
        {[](Bench& bench) {
             bench.connect();
             bench.allocate(5, 1, 1);
             for (std::uint16_t list = 0; list < 5; ++list)
                 bench.write(list, 0, {count});
             for (std::uint16_t list = 0; list < 5; ++list)
                 bench.ask(xcp::SetDaqListMode{0x10, list, 0, 1, 0}),
                     bench.ask(xcp::StartStopDaqList{2, list});
             bench.run(0, 10 * ms);
         },
         "", "5 DAQ lists with values run at once, 4 can be decoded: .*"},
    };
    for (const auto& [session, lists, cause] : cases) {
        Bench bench(usual);
        session(bench);
        const auto end = bench.decode(lists);
        EXPECT_EQ(end.status, 3) << cause;
        EXPECT_TRUE(has(end.errors, "^xcp_daq_task: [^ ]*: " + cause + "\n$")) << end.errors;
    }
}

} // namespace
