// The simulated slave: commands and their refusals, sampling, the faulty link, the server.

#include "simulated_slave/link.h"
#include "simulated_slave/server.h"
#include "simulated_slave/signal_values.h"
#include "simulated_slave/slave.h"
#include "temporary_file.h"
#include "xcp/commands.h"
#include "xcp/message.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sstream>
#include <tuple>

using namespace simulated_slave;
using Bytes = std::vector<std::uint8_t>;

namespace {

constexpr std::uint64_t ms = 1'000'000; // in nanoseconds

// ---- an A2L file and a slave out of it ----

struct Daq {
    const char* identification = "RELATIVE_BYTE";
    const char* order = "LAST";
    const char* stamp = "1 SIZE_DWORD UNIT_1NS TIMESTAMP_FIXED";
    const char* granularity = "BYTE";
    const char* head = "DYNAMIC 0";
    const char* addresses = "BYTE";
};

std::string measurement(const std::string& name, const std::string& type, const char* address,
                        const std::string& more = "", const std::string& limits = "-100 100") {
    return "/begin MEASUREMENT " + name + " \"\" " + type + " 0 0 " + limits + " ECU_ADDRESS " +
           address + " " + more + " /end MEASUREMENT\n";
}

std::string a2l_text(const Daq& daq = {}) {
    const std::string none = " NO_COMPU_METHOD";
    std::string stamp;
    if (*daq.stamp != '\0')
        stamp =
            std::string("/begin TIMESTAMP_SUPPORTED ") + daq.stamp + " /end TIMESTAMP_SUPPORTED";
    return std::string("ASAP2_VERSION 1 71 /begin PROJECT p \"\" /begin MODULE m \"\"\n") +
           "/begin IF_DATA XCP /begin PROTOCOL_LAYER 0x0104 1000 1000 1000 1000 1000 1000 1000 " +
           "32 40 BYTE_ORDER_MSB_" + daq.order + " ADDRESS_GRANULARITY_" + daq.addresses +
           " /end PROTOCOL_LAYER /begin DAQ " + daq.head +
           " 6 0 OPTIMISATION_TYPE_DEFAULT ADDRESS_EXTENSION_FREE IDENTIFICATION_FIELD_TYPE_" +
           daq.identification + " GRANULARITY_ODT_ENTRY_SIZE_DAQ_" + daq.granularity +
           " 16 NO_OVERLOAD_INDICATION " + stamp +
           " /begin EVENT \"fast\" \"f\" 0 DAQ 0xFF 1 6 0 /end EVENT\n"
           "/begin EVENT \"slow\" \"s\" 3 DAQ 0xFF 5 6 0 /end EVENT\n"
           "/begin EVENT \"stim\" \"x\" 5 STIM 0xFF 1 6 0 /end EVENT\n"
           "/end DAQ /end IF_DATA\n" +
           measurement("speed", "UWORD CM", "0x1000",
                       "ECU_ADDRESS_EXTENSION 1 BYTE_ORDER MSB_FIRST") +
           measurement("flags", "UBYTE" + none, "0x2000") +
           measurement("flag", "UBYTE" + none, "0x2000", "BIT_MASK 0x0C") +
           measurement("level", "SBYTE" + none, "0x2001") +
           measurement("wide", "ULONG" + none, "0x2004") +
           measurement("inside", "UWORD" + none, "0x2007") + // one byte of it is the other's
           measurement("count", "A_UINT64" + none, "0x2010") +
           measurement("steps", "A_INT64" + none, "0x2018", "BYTE_ORDER MSB_FIRST") +
           measurement("half", "FLOAT16_IEEE" + none, "0x2020", "", "-1e-4 1e-4") +
           measurement("real", "FLOAT32_IEEE" + none, "0x2024") +
           measurement("precise", "FLOAT64_IEEE" + none, "0x2028", "BYTE_ORDER MSB_FIRST") +
           measurement("field", "SWORD" + none, "0x3000", "MATRIX_DIM 2 2") +
           "/begin MEASUREMENT made_up \"\" UBYTE NO_COMPU_METHOD 0 0 0 1 /begin VIRTUAL flags "
           "/end "
           "VIRTUAL /end MEASUREMENT\n"
           "/begin COMPU_METHOD CM \"\" LINEAR \"%5.1\" \"\" COEFFS_LINEAR 0.5 -10 /end "
           "COMPU_METHOD\n"
           "/end MODULE /end PROJECT\n";
}

Bytes hex(const std::string& text) {
    std::istringstream words(text);
    Bytes bytes;
    for (unsigned byte = 0; words >> std::hex >> byte;)
        bytes.push_back(static_cast<std::uint8_t>(byte));
    return bytes;
}

std::string to_hex(std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char word[4];
        std::snprintf(word, sizeof word, text.empty() ? "%02x" : " %02x", byte);
        text += word;
    }
    return text;
}

Bytes message(const Bytes& packet, std::uint16_t ctr) {
    Bytes datagram;
    xcp::append_message(datagram, ctr, packet);
    return datagram;
}

a2l::File read(const std::string& text) {
    return a2l::File(TemporaryFile(text).path());
}

struct Bench {
    explicit Bench(const Daq& daq = {}, const std::set<Fault>& faults = {})
        : file(read(a2l_text(daq))),
          order(*daq.order == 'F' ? xcp::ByteOrder::big : xcp::ByteOrder::little),
          slave(
              file, faults, [this](const Datagram& datagram) { take(datagram); }, "rig") {}

    void take(const Datagram& datagram) {
        sizes.push_back(datagram.payload.size());
        xcp::MessageWalk walk(datagram.payload);
        for (xcp::Message each{}; walk.next(each);) {
            EXPECT_EQ(each.ctr, slaveCtr++);
            if (datagram.answer)
                answer = to_hex(each.packet);
            else
                packets.push_back(to_hex(each.packet));
        }
        EXPECT_EQ(walk.left(), 0U);
        for (const auto& [signal, physical] : datagram.values)
            values.emplace_back(signal->name, physical);
    }

    // The answer in hexadecimal; empty when there is none.
    std::string ask(const Bytes& packet) {
        answer.clear();
        slave.take(message(packet, ctr++), now);
        return answer;
    }
    std::string ask(const std::string& packet) { return ask(hex(packet)); }
    template <class Command>
    requires requires { Command::code; }
    std::string ask(const Command& command) { return ask(xcp::command_packet(command, order)); }
    // Each a command and its answer: "fd -> ff 00 00 00 00 00".
    void expect_answers(const std::vector<std::string>& lines) {
        for (const std::string& line : lines) {
            const std::size_t arrow = line.find(" -> ");
            EXPECT_EQ(ask(line.substr(0, arrow)), line.substr(arrow + 4)) << line;
        }
    }
    void expect_ok(const std::vector<std::string>& commands) {
        for (const std::string& command : commands)
            EXPECT_EQ(ask(command).substr(0, 2), "ff") << command;
    }

    // Begins a session with one list of one ODT on an event.
    void start(const std::vector<std::string>& writes, std::uint8_t mode = 0x10) {
        expect_ok({"ff 00", "d6", "d5 00 01 00", "d4 00 00 00 01"});
        ask(xcp::AllocOdtEntry{.count = static_cast<std::uint8_t>(writes.size())});
        ask(xcp::SetDaqPtr{});
        for (const std::string& write : writes)
            EXPECT_EQ(ask("e1 ff " + write), "ff") << write;
        ask(xcp::SetDaqListMode{.mode = mode});
        expect_ok({"de 02 00 00", "dd 01"});
    }

    a2l::File file;
    const xcp::ByteOrder order;
    std::uint64_t now = 0;
    std::uint16_t ctr = 100;
    std::uint16_t slaveCtr = 0;
    std::string answer;
    std::vector<std::size_t> sizes; // of datagrams
    std::vector<std::string> packets;
    std::vector<std::pair<std::string, double>> values;
    Slave slave;
};

// ---- commands ----

TEST(Slave, AnswersAndRefusesCommandByCommand) {
    const std::string unknown = "fe 20", syntax = "fe 21", range = "fe 22", denied = "fe 24",
                      mode = "fe 27", sequence = "fe 29", config = "fe 2a", active = "fe 11";
    const struct {
        std::string command;
        std::string answer;
        const char* why = "";
    } story[] = {
        {"fd", "", "not connected"},
        {"ff", "", "too short"},
        {"ff 00 00", "", "too long"},
        {"ff 01", "", "no such mode"},
        {"ff 00", "ff 04 80 20 28 00 01 01"},
        {"fc", "fe 00"},
        {"fd", "ff 00 00 00 00 00"},
        {"fd 00", syntax, "too long"},
        {"fb", "ff 00 00 00 00 00 00 10"},
        {"c5", unknown},
        {"fa", syntax},
        {"fa 01", "ff 01 00 00 03 00 00 00 72 69 67"},
        {"fa 09", range},
        {"f5 01", denied, "nothing to upload"},
        {"da", "ff 11 00 00 06 00 00 40"},
        {"d9", "ff 01 10 01 00 0c 01 00"},
        {"d7 00 00 00", "ff 84 ff 04 64 04 00"},
        {"f5 00", range},
        {"f5 20", range, "more than an answer holds"},
        {"f5 05", denied, "more than the name"},
        {"f5 03", "ff 66 61 73"},
        {"f5 01", "ff 74"},
        {"d7 00 03 00", "ff 84 ff 04 32 05 00"},
        {"d7 00 01 00", range, "between two events"},
        {"d7 00 06 00", range},
        {"dc", "ff 00 00 01 00 d1 97 a6"},

        {"d5 00 01 00", sequence, "before FREE_DAQ"},
        {"e2 00 00 00 00 00", range, "no list"},
        {"e1 ff 01 00 00 20 00 00", config, "no pointer"},
        {"e0 10 00 00 00 00 01 00", range, "no list"},
        {"de 02 00 00", range, "no list"},
        {"dd 01", config, "none selected"},
        {"dd 00", config, "none runs"},
        {"d6", "ff"},
        {"d4 00 00 00 01", sequence, "no lists"},
        {"d5 00 00 00", range},
        {"d5 00 01 01", range, "list 256 has no byte"},
        {"d5 00 02 00", "ff"},
        {"da", "ff 11 02 00 06 00 00 40"},
        {"d3 00 00 00 00 01", sequence, "no ODTs"},
        {"d4 00 02 00 01", config, "no such list"},
        {"d4 00 00 00 00", range},
        {"d4 00 00 00 c1", range, "PIDs end at BF"},
        {"d4 00 00 00 02", "ff"},
        {"d4 00 01 00 01", "ff"},
        {"d5 00 02 00", sequence, "after an ODT"},
        {"d3 00 02 00 00 01", config, "no such list"},
        {"d3 00 00 00 02 01", range, "no such ODT"},
        {"d3 00 00 00 00 00", range},
        {"d3 00 00 00 00 04", "ff"},
        {"d3 00 00 00 01 01", "ff"},
        {"d3 00 01 00 00 01", "ff"},
        {"d4 00 01 00 01", sequence, "after an entry"},

        {"e1 ff 01 00 00 20 00 00", config, "no pointer yet"},
        {"e2 00 02 00 00 00", range},
        {"e2 00 00 00 02 00", range},
        {"e2 00 00 00 00 04", range},
        {"e2 00 00 00 00 00", "ff"},
        {"e1 ff 00 00 00 20 00 00", range, "size 0"},
        {"e1 ff 11 00 10 20 00 00", range, "largest entry 16"},
        {"e1 03 01 00 00 20 00 00", range, "a single bit"},
        {"e1 ff 02 00 00 10 00 00", denied, "other extension"},
        {"e1 ff 01 00 02 20 00 00", denied, "between two signals"},
        {"e1 ff 08 ff fc ff ff ff", denied, "beyond all addresses"},
        {"e1 ff 02 00 00 20 00", syntax},
        {"de 02 00 00", config, "without a mode"},
        {"e1 ff 10 00 10 20 00 00", "ff"},
        {"e1 ff 08 00 18 20 00 00", "ff"},
        {"e1 ff 10 00 10 20 00 00", range, "with it, 46 bytes"},
        {"e1 ff 02 00 20 20 00 00", "ff"},
        {"e0 12 00 00 00 00 01 00", mode, "stimulation"},
        {"e0 00 00 00 00 00 01 00", syntax, "stamps are fixed"},
        {"e0 30 00 00 00 00 01 00", range, "without PID"},
        {"e0 10 02 00 00 00 01 00", range, "no such list"},
        {"e0 10 00 00 01 00 01 00", range, "no such event"},
        {"e0 10 00 00 05 00 01 00", range, "an event for stimulation"},
        {"e0 10 00 00 00 00 02 00", range, "prescaler"},
        {"e0 10 00 00 00 00 01 00", "ff"},
        {"e0 10 00 00 00 00 01 00", config, "twice"},
        {"de 02 00 00", config, "entries are not written"},
        {"e1 ff 06 00 04 20 00 00", denied, "the last byte is nobody's"},
        {"e1 ff 05 00 04 20 00 00", "ff"},
        {"e1 ff 01 00 00 20 00 00", range, "behind the ODT's end"},
        {"e2 00 00 00 00 00", "ff"},
        {"e1 ff 10 00 10 20 00 00", "ff", "once more"},
        {"e2 00 00 00 01 00", "ff"},
        {"e1 ff 01 00 00 20 00 00", "ff"},
        {"de 01 00 00", mode, "start of one list"},
        {"dd 01", config, "none selected"},
        {"dd 03", config, "none selected"},
        {"de 02 00 00", "ff 00"},
        {"de 00 00 00", "ff 00", "no longer selected"},
        {"dd 01", config},
        {"de 02 00 00", "ff 00"},
        {"dd 03", "ff"},
        {"dd 09", mode},
        {"dd 01", "ff"},

        {"fd", "ff 40 00 00 00 00"},
        {"d6", active},
        {"d5 00 01 00", active},
        {"e2 00 00 00 00 00", active},
        {"e1 ff 01 00 00 20 00 00", active},
        {"e0 10 01 00 00 00 01 00", active},
        {"dd 01", active},
        {"de 02 00 00", "ff 00"},
        {"dd 02", "ff"},
        {"dd 00", config, "none runs"},
        {"de 02 00 00", "ff 00"},
        {"dd 01", "ff"},
        {"de 00 00 00", "ff 00"},
        {"fd", "ff 00 00 00 00 00"},
        {"de 02 00 00", "ff 00"},
        {"dd 01", "ff"},
        {"dd 00", "ff"},
        {"ff 00", "ff 04 80 20 28 00 01 01", "clears all lists"},
        {"e2 00 00 00 00 00", range},
        {"d5 00 01 00", sequence},
        {"fe", "ff"},
        {"fd", "", "not connected"},
    };
    Bench bench;
    for (const auto& [command, answer, why] : story)
        ASSERT_EQ(bench.ask(command), answer) << command << " " << why;
    EXPECT_EQ(bench.slave.violations(), 0U);
    EXPECT_EQ(bench.packets.size(), 6U) << "the first sample of each start";
}

TEST(Slave, HasSoMuchMemory) {
    Bench bench;
    bench.expect_ok({"ff 00", "d6", "d5 00 00 01"});
    std::uint16_t lists = 0;
    while (lists < 256 && bench.ask(xcp::AllocOdt{.daq = lists, .count = 31}) == "ff")
        ++lists;
    EXPECT_EQ(bench.answer, "fe 30");
    EXPECT_EQ(lists, (65536U - 256 * 16) / (31 * 8));
    bench.expect_ok({"d6", "d5 00 01 00", "d4 00 00 00 c0"});
    std::uint8_t odts = 0;
    while (odts < 192 && bench.ask(xcp::AllocOdtEntry{.odt = odts, .count = 255}) == "ff")
        ++odts;
    EXPECT_EQ(bench.answer, "fe 30");
    EXPECT_EQ(odts, (65536U - 16 - 192 * 8) / (255 * 8));
}

TEST(Slave, ChainsMessagesIntoDatagrams) {
    Bench bench;
    bench.expect_ok({"ff 00", "d6", "d5 00 01 00", "d4 00 00 00 c0"});
    for (std::uint8_t odt = 0; odt < 192; ++odt)
        bench.ask(xcp::AllocOdtEntry{.odt = odt, .count = 1});
    for (std::uint8_t odt = 0; odt < 192; ++odt) {
        bench.ask(xcp::SetDaqPtr{.odt = odt});
        bench.ask(xcp::WriteDaq{.size = 16, .address = 0x2010});
    }
    bench.expect_ok({"e0 10 00 00 00 00 01 00", "de 02 00 00", "dd 01"});
    bench.sizes.clear();
    bench.slave.advance(0);
    EXPECT_EQ(bench.sizes, (std::vector<std::size_t>{26 + 62 * 22, 63 * 22, 63 * 22, 3 * 22}));
}

TEST(Slave, SaysWhatTheA2lFileSays) {
    Bench absolute({.identification = "ABSOLUTE",
                    .order = "FIRST",
                    .stamp = "10 SIZE_WORD UNIT_1MS",
                    .granularity = "WORD"});
    absolute.expect_answers({"ff 00 -> ff 04 81 20 00 28 01 01",
                             "da -> ff 11 00 00 00 06 00 00",
                             "d9 -> ff 02 10 01 00 62 00 0a",
                             "d7 00 00 03 -> ff 84 ff 04 32 05 00",
                             "fa 01 -> ff 01 00 00 00 00 00 03 72 69 67",
                             "dc -> ff 00 00 01 ff ff c5 68",
                             "d6 -> ff",
                             "d5 00 00 02 -> ff",
                             "d4 00 00 00 c0 -> ff",
                             "d4 00 00 01 01 -> fe 22",
                             "d4 00 00 00 02 -> ff",
                             "d4 00 00 01 01 -> ff",
                             "d3 00 00 01 00 03 -> ff",
                             "e2 00 00 01 00 00 -> ff",
                             "e1 ff 01 00 00 00 20 00 -> fe 22",
                             "e1 ff 02 00 00 00 20 01 -> fe 22",
                             "e1 ff 10 00 00 00 20 10 -> ff",
                             "e1 ff 10 00 00 00 20 10 -> ff",
                             "e1 ff 06 00 00 00 30 00 -> ff",
                             "e0 10 00 01 00 03 01 00 -> fe 22",
                             "e0 00 00 01 00 03 01 00 -> ff",
                             "de 02 00 01 -> ff 02"});
    Bench bare({.stamp = ""});
    bare.expect_answers({"ff 00 -> ff 04 80 20 28 00 01 01", "da -> ff 01 00 00 06 00 00 40",
                         "dc -> fe 20", "d6 -> ff", "d5 00 01 00 -> ff",
                         "e0 10 00 00 00 00 01 00 -> fe 27"});

    const std::string longName(25, 'n');
    Slave named(
        bare.file, {}, [&](const Datagram& datagram) { bare.take(datagram); }, longName);
    bare.slaveCtr = 0;
    named.take(message(hex("ff 00"), 0), 0);
    named.take(message(hex("fa 01"), 1), 0);
    EXPECT_EQ(bare.answer, "ff 00 00 00 19 00 00 00");
    named.take(message(hex("f5 19"), 2), 0);
    EXPECT_EQ(bare.answer, "ff " + to_hex(Bytes(25, 'n')));

    for (const Daq& daq : {Daq{.head = "STATIC 1"}, Daq{.addresses = "WORD"}})
        EXPECT_THROW(Bench{daq}, std::invalid_argument);
}

TEST(Slave, HearsOnlyWholeMessagesThatFollowEachOther) {
    Bench bench;
    const auto send = [&](const Bytes& datagram) {
        bench.answer.clear();
        bench.slave.take(datagram, 0);
        return bench.answer;
    };
    const auto with = [](Bytes datagram, const Bytes& more) {
        datagram.insert(datagram.end(), more.begin(), more.end());
        return datagram;
    };
    EXPECT_NE(send(message({0xFF, 0}, 0xFFFE)), "");
    EXPECT_NE(send(message({0xFD}, 0xFFFF)), "");
    const Bytes next = message({0xFD}, 0);
    for (const Bytes& wrong :
         {Bytes{}, Bytes{0}, Bytes{0, 0, 0, 0}, Bytes{2, 0, 0, 0, 0xFD}, with(next, {0}),
          with(next, message({0xFD}, 1)), message({0xFD}, 0xFFFF)})
        EXPECT_EQ(send(wrong), "") << to_hex(wrong);
    EXPECT_EQ(bench.slave.violations(), 7U);
    EXPECT_NE(send(next), "");
    EXPECT_EQ(send(next), "") << "what comes twice is no command";
    EXPECT_NE(send(message({0xFD}, 3)), "") << "two commands were lost";
    EXPECT_NE(send(message({0xFF, 0}, 77)), "") << "a session begins with any CTR";
    EXPECT_NE(send(message({0xFD}, 78)), "");
    EXPECT_EQ(bench.slave.violations(), 8U);
}

// ---- sampling ----

TEST(Slave, LaysPacketsOutInEachIdentificationFieldAndByteOrder) {
    const struct {
        Daq daq;
        std::string first, second,
            third; // ODTs 0 and 1 of list 0, ODT 0 of list 1, up to the value
    } forms[] = {
        {{.identification = "ABSOLUTE"}, "00 00 d1 97 a6", "01", "02 00 d1 97 a6"},
        {{}, "00 00 00 d1 97 a6", "01 00", "00 01 00 d1 97 a6"},
        {{.identification = "RELATIVE_WORD"},
         "00 00 00 00 d1 97 a6",
         "01 00 00",
         "00 01 00 00 d1 97 a6"},
        {{.identification = "RELATIVE_WORD_ALIGNED", .order = "FIRST"},
         "00 aa 00 00 a6 97 d1 00",
         "01 aa 00 00",
         "00 aa 00 01 a6 97 d1 00"},
    };
    for (const auto& [daq, first, second, third] : forms) {
        Bench bench(daq);
        bench.ask(xcp::Connect{});
        bench.ask(xcp::FreeDaq{});
        bench.ask(xcp::AllocDaq{.count = 2});
        bench.ask(xcp::AllocOdt{.daq = 0, .count = 2});
        bench.ask(xcp::AllocOdt{.daq = 1, .count = 1});
        const std::pair<std::uint16_t, std::uint8_t> odts[] = {{0, 0}, {0, 1}, {1, 0}};
        for (const auto& [list, odt] : odts)
            bench.ask(xcp::AllocOdtEntry{.daq = list, .odt = odt, .count = 1});
        for (const auto& [list, odt] : odts) {
            bench.ask(xcp::SetDaqPtr{.daq = list, .odt = odt});
            bench.ask(xcp::WriteDaq{.size = 1, .address = 0x2000});
        }
        for (std::uint16_t list = 0; list < 2; ++list) {
            bench.ask(xcp::SetDaqListMode{.mode = 0x10, .daq = list});
            EXPECT_EQ(bench.ask(xcp::StartStopDaqList{.daq = list}),
                      list == 1 && std::string(daq.identification) == "ABSOLUTE" ? "ff 02"
                                                                                 : "ff 00");
        }
        EXPECT_EQ(bench.ask(xcp::StartStopSynch{.mode = 1}), "ff");
        EXPECT_EQ(bench.slave.advance(0), ms);
        ASSERT_EQ(bench.packets.size(), 3U);
        const std::string value = bench.packets[1].substr(bench.packets[1].size() - 3);
        EXPECT_EQ(bench.packets, (std::vector{first + value, second + value, third + value}));
    }
}

TEST(Slave, SendsEveryCycleInTheOrderOfTime) {
    Bench bench({.stamp = "1 SIZE_WORD UNIT_1US"});
    bench.expect_ok({"ff 00", "d6", "d5 00 02 00", "d4 00 00 00 01", "d4 00 01 00 01",
                     "d3 00 00 00 00 01", "d3 00 01 00 00 01", "e2 00 00 00 00 00",
                     "e1 ff 01 00 00 20 00 00", "e2 00 01 00 00 00", "e1 ff 01 00 01 20 00 00",
                     "e0 10 00 00 03 00 01 00", "e0 00 01 00 00 00 01 00", "de 02 00 00",
                     "de 02 01 00"});
    EXPECT_EQ(bench.slave.advance(10 * ms), Bench().slave.advance(0)) << "nothing runs";
    bench.now = 10 * ms;
    bench.ask("dd 01");
    EXPECT_TRUE(bench.slave.running());
    EXPECT_EQ(bench.slave.advance(17 * ms + 1), 18 * ms);
    std::vector<std::string> heads;
    for (const std::string& packet : bench.packets)
        heads.push_back(packet.substr(0, packet.size() - 3));
    // Its clock: 1.5 s before a wrap, of which two bytes of microseconds are left.
    const std::string unstamped = "00 01";
    EXPECT_EQ(heads, (std::vector<std::string>{unstamped, "00 00 b0 43", unstamped, unstamped,
                                               unstamped, unstamped, unstamped, "00 00 38 57",
                                               unstamped, unstamped}));
    const auto firstLevel = raw_value(*bench.file.find("level"), 3, 0);
    EXPECT_EQ(hex(bench.packets[0])[2], static_cast<std::uint8_t>(firstLevel));
    bench.now = 20 * ms;
    EXPECT_EQ(bench.ask("dd 00"), "ff");
    EXPECT_EQ(bench.packets.size(), 14U) << "what was due before the command";
    EXPECT_EQ(bench.slave.advance(100 * ms), Bench().slave.advance(0));
    EXPECT_EQ(bench.packets.size(), 14U);
}

TEST(Slave, ItsClockWrapsAndJumps) {
    for (const bool jumps : {false, true}) {
        Bench bench({}, jumps ? std::set{Fault::jump} : std::set<Fault>{});
        bench.start({"01 00 00 20 00 00"});
        bench.slave.advance(1600 * ms);
        ASSERT_EQ(bench.packets.size(), 1601U);
        std::uint32_t expected = 0U - 1'500'000'000U;
        for (std::size_t i = 0; i < bench.packets.size(); ++i, expected += ms) {
            if (jumps && i != 0 && i % datagrams_per_fault == 0)
                expected += 2'000'000'000;
            const Bytes packet = hex(bench.packets[i]);
            ASSERT_EQ(xcp::load_little_endian<std::uint32_t>(&packet[2]), expected) << i;
        }
    }
}

// Each signal's value out of the packet's bytes, by the means of this machine.
TEST(Slave, SendsWhatIsAtAnAddress) {
    Bench bench({.identification = "RELATIVE_WORD", .stamp = ""});
    bench.start({"02 01 00 10 00 00", "01 00 00 20 00 00", "01 00 01 20 00 00", "02 00 07 20 00 00",
                 "08 00 18 20 00 00", "02 00 20 20 00 00", "08 00 28 20 00 00",
                 "04 00 04 30 00 00"},
                0);
    bench.slave.advance(5000 * ms);
    ASSERT_EQ(bench.packets.size(), 5001U);
    const std::vector<std::string> names = {"speed",       "flags",      "flag", "level",
                                            "inside",      "steps",      "half", "precise",
                                            "field[1][0]", "field[1][1]"};
    ASSERT_EQ(bench.values.size(), 5001 * names.size());
    std::vector<double> least(names.size(), 1e300), most(names.size(), -1e300);
    for (std::size_t i = 0; i < bench.packets.size(); ++i) {
        const Bytes packet = hex(bench.packets[i]);
        const std::uint8_t* const at = &packet[3];
        const auto word = [&](std::size_t place) {
            return xcp::load_little_endian<std::uint16_t>(at + place);
        };
        const auto reversed = [&](std::size_t place) {
            return __builtin_bswap64(xcp::load_little_endian<std::uint64_t>(at + place));
        };
        const int exponent = word(14) >> 10 & 31;
        const double half =
            std::ldexp((word(14) & 1023) + (exponent == 0 ? 0 : 1024), std::max(exponent, 1) - 25);
        const std::uint64_t bits = reversed(16);
        double precise = 0;
        std::memcpy(&precise, &bits, sizeof precise);
        const double expected[] = {0.5 * (at[0] << 8 | at[1]) - 10,
                                   1.0 * at[2],
                                   1.0 * (at[2] >> 2 & 3),
                                   1.0 * static_cast<std::int8_t>(at[3]),
                                   1.0 * word(4),
                                   static_cast<double>(static_cast<std::int64_t>(reversed(6))),
                                   (word(14) & 0x8000) == 0 ? half : -half,
                                   precise,
                                   1.0 * static_cast<std::int16_t>(word(24)),
                                   1.0 * static_cast<std::int16_t>(word(26))};
        for (std::size_t k = 0; k < names.size(); ++k) {
            const auto& [name, physical] = bench.values[i * names.size() + k];
            ASSERT_EQ(name, names[k]);
            ASSERT_EQ(physical, expected[k]) << name << " " << i;
            least[k] = std::min(least[k], physical);
            most[k] = std::max(most[k], physical);
        }
    }
    const double greatest[] = {32757, 255, 3, 127, 65535, 9.2e18, 1e-4, 100, 32700, 32700};
    const double smallest[] = {-10, 0, 0, -127, 0, -9.2e18, -1e-4, -100, -32700, -32700};
    for (std::size_t k = 0; k < names.size(); ++k) {
        EXPECT_NEAR(most[k], greatest[k], std::abs(greatest[k]) / 100) << names[k];
        EXPECT_NEAR(least[k], smallest[k], std::abs(greatest[k]) / 100) << names[k];
    }
}

TEST(Slave, ComposesWhatOverlapsAndNamesASignalOncePerSample) {
    Bench bench({.stamp = ""});
    const auto names = [&] {
        bench.slave.advance(bench.now);
        std::vector<std::string> all;
        for (const auto& [name, physical] : bench.values)
            all.push_back(name);
        bench.values.clear();
        bench.ask("dd 00");
        return all;
    };
    using Names = std::vector<std::string>;
    bench.start({"05 00 04 20 00 00", "02 00 07 20 00 00", "01 00 07 20 00 00"}, 0);
    EXPECT_EQ(names(), (Names{"wide", "inside"})) << "the first entry holds both";
    const Bytes packet = hex(bench.packets.at(0));
    EXPECT_EQ(packet[2 + 3], raw_value(*bench.file.find("wide"), 4, 0) >> 24) << "it is the first";
    EXPECT_EQ(packet[2 + 3], packet[2 + 5]);
    EXPECT_EQ(packet[2 + 4], packet[2 + 6]);
    EXPECT_EQ(packet[2 + 3], packet[2 + 7]);
    bench.start({"01 00 00 20 00 00", "01 00 00 20 00 00"}, 0);
    EXPECT_EQ(names(), (Names{"flags", "flag"}));
    bench.start({"10 00 10 20 00 00", "08 00 00 30 00 00", "04 00 10 20 00 00"}, 0);
    EXPECT_EQ(names(), (Names{"count", "steps", "field[0][0]", "field[0][1]", "field[1][0]",
                              "field[1][1]"}));
}

// ---- the link ----

TEST(Link, LosesRepeatsAndDelaysButNoAnswer) {
    a2l::Signal signal;
    signal.name = "s";
    std::vector<int> got;
    Link link({Fault::lost, Fault::repeated, Fault::late},
              [&](std::span<const std::uint8_t> payload) { got.push_back(payload[0]); });
    std::vector<int> expected;
    for (int i = 1; i <= 130; ++i) {
        link.send({{static_cast<std::uint8_t>(i)}, {{&signal, 1.0 * i}}, false});
        link.send({{0}, {}, true});
        if (i % 100 == 10)
            expected.push_back(0); // lost
        else if (i == 20 || i == 120)
            expected.insert(expected.end(), {i, i, 0});
        else // what is late comes before an answer at the latest
            expected.insert(expected.end(), {i, 0});
    }
    EXPECT_EQ(got, expected);
    EXPECT_EQ(link.sent().at("s").count, 130U);
    got.clear();
    for (int i = 131; i <= 230; ++i)
        link.send({{static_cast<std::uint8_t>(i)}, {{&signal, 1.0 * i}}, false});
    EXPECT_EQ(got.back(), 229);
    EXPECT_EQ(link.sent().at("s").physical, 229) << "the last one that went out";
    link.finish();
    EXPECT_EQ(got.back(), 230);
    EXPECT_EQ(link.sent().at("s").count, 230U);
}

// ---- the server ----

class Master {
  public:
    explicit Master(const io::UdpEndpoint& slave) : slave_(slave) {
        const timeval longest{2, 0};
        setsockopt(socket_.descriptor(), SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof longest);
    }
    void send(const std::string& packet) const {
        socket_.send(slave_, message(hex(packet), ctr_++));
    }
    Bytes receive(int flags = 0) const {
        Bytes bytes(2000);
        const auto size = recv(socket_.descriptor(), bytes.data(), bytes.size(), flags);
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        return bytes;
    }
    std::string ask(const std::string& packet) {
        send(packet);
        Bytes bytes = receive();
        for (; bytes.size() > 4 && bytes[4] <= xcp::last_daq_pid; bytes = receive())
            ++samples;
        return bytes.empty() ? "" : to_hex(std::span(bytes).subspan(4));
    }
    std::uint64_t samples = 0;

  private:
    const io::UdpEndpoint slave_;
    const io::UdpSocket socket_{io::parse_endpoint("127.0.0.1:0")};
    mutable std::uint16_t ctr_ = 0;
};

TEST(Server, ServesOneMasterAfterAnother) {
    const a2l::File file = read(a2l_text());
    Server server(file, {}, io::parse_endpoint("127.0.0.1:0"));
    EXPECT_THROW(Server(file, {}, server.endpoint()), std::system_error);
    std::vector<std::string> lines;
    server.start([&](const std::string& line) { lines.push_back(line.substr(0, 13)); });
    Master first(server.endpoint()), second(server.endpoint());
    EXPECT_EQ(first.ask("ff 00"), "ff 04 80 20 28 00 01 01");
    second.send("fd"); // not heard
    for (const std::string packet :
         {"d6", "d5 00 01 00", "d4 00 00 00 01", "d3 00 00 00 00 01", "e2 00 00 00 00 00",
          "e1 ff 02 01 00 10 00 00", "e0 10 00 00 00 00 01 00", "de 02 00 00", "dd 01"})
        EXPECT_EQ(first.ask(packet).substr(0, 2), "ff") << packet;
    while (first.samples < 20 && first.receive().size() == 12)
        ++first.samples;
    EXPECT_EQ(first.ask("dd 00"), "ff");
    EXPECT_EQ(second.ask("ff 00"), "ff 04 80 20 28 00 01 01");
    first.send("fd"); // no longer heard
    EXPECT_EQ(second.ask("fe"), "ff");
    server.stop();
    EXPECT_TRUE(first.receive(MSG_DONTWAIT).empty());
    EXPECT_EQ(server.error(), "");
    EXPECT_EQ(server.violations(), 0U);
    EXPECT_GE(first.samples, 20U);
    EXPECT_EQ(server.sent().at("speed").count, first.samples);
    EXPECT_EQ(lines, (std::vector<std::string>{"session begun", "session ended", "session begun",
                                               "session ended"}));
}

#ifdef XCP_SIMULATED_SLAVE
TEST(Program, SaysWhatItDoesInOneLine) {
    const TemporaryFile good(a2l_text()), fixed(a2l_text({.head = "STATIC 1"}));
    const io::UdpSocket taken(io::parse_endpoint("127.0.0.1:0"));
    const std::string listen = " --listen ", own = listen + io::to_text(taken.local());
    const std::string name = good.path().substr(good.path().rfind('/') + 1);
    for (const auto& [arguments, status, text] :
         {std::tuple(good.path() + listen + "127.0.0.1:0 --seconds 0.01 --faults lost,jump", 0,
                     ": " + name + ", 15 signals, 3 events\nsent 0 values of 0 signals"),
          {good.path() + listen + "127.0.0.1", 1, "--listen: expected ADDRESS:PORT"},
          {good.path() + " --faults lots", 1, "--faults: lots not in"},
          {"/", 3, "xcp_simulated_slave: /: "},
          {fixed.path(), 3, fixed.path() + ": DAQ lists are static"},
          {good.path() + own, 4, "xcp_simulated_slave: cannot listen on"}}) {
        const TemporaryFile output;
        const std::string command = XCP_SIMULATED_SLAVE " " + arguments + " >" + output.path();
        EXPECT_EQ(WEXITSTATUS(std::system((command + " 2>&1").c_str())), status) << command;
        EXPECT_NE(output.text().find(text), std::string::npos) << output.text();
    }
}
#endif

} // namespace
