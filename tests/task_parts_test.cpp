// The parts of the task: what reads users' files, what watches packets and times, what shows and
// records.

#include "capture_text.h"
#include "host/standin/variables_file.h"
#include "io/file_error.h"
#include "table.h"
#include "task/configuration/integer_conversion.h"
#include "task/configuration/raw_words.h"
#include "task/configuration/spec_file.h"
#include "task/configuration/table_file.h"
#include "task/output/csv_recorder.h"
#include "task/output/frame_dump.h"
#include "task/output/live_view.h"
#include "task/output/message_counter.h"
#include "task/output/packet_watch.h"
#include "task/output/sample_time_watch.h"
#include "task/sources/capture_file.h"
#include "task/sources/sample_order.h"
#include "temporary_file.h"
#include "xcp/message.h"
#include "xcp_daq/value_conversion.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <functional>
#include <random>
#include <regex>

#include <fcntl.h>
#include <sys/stat.h>

using halmor_standin::Variable;
using halmor_standin::VariableKind;
using halmor_standin::VariableStore;
using table::Bytes;

namespace {

// ---- captures ----

// A pcap file of frames, one nanosecond apart.
std::string capture_of(std::uint32_t linkType, const std::vector<Bytes>& frames) {
    std::vector<capture::Frame> timed;
    for (const Bytes& frame : frames)
        timed.push_back({timed.size(), frame});
    return capture::file_of(linkType, timed);
}

// An IPv4 packet from 10.0.0.5:1000 that carries one byte.
Bytes ipv4(std::uint8_t payload, std::uint8_t lastAddressByte = 5, std::uint8_t fragment = 0,
           std::uint8_t protocol = 17) {
    return {0x46,      0,           0, 33, 0,  0, fragment, fragment,
            64,        protocol,    0, 0,  10, 0, 0,        lastAddressByte,
            10,        0,           0, 9,  1,  1, 1,        1, // an option of 4 bytes
            1000 >> 8, 1000 & 0xFF, 0, 9,  0,  9, 0,        0,
            payload,   0xEE}; // padding of the frame
}

// A piece of a packet, as its header says; 0x2000 is that more follow.
Bytes fragment(std::uint8_t packet, std::uint16_t place, const Bytes& content) {
    Bytes bytes = {0x45,
                   0,
                   0,
                   static_cast<std::uint8_t>(20 + content.size()),
                   0,
                   packet,
                   static_cast<std::uint8_t>(place >> 8),
                   static_cast<std::uint8_t>(place),
                   64,
                   17,
                   0,
                   0,
                   10,
                   0,
                   0,
                   5,
                   10,
                   0,
                   0,
                   9};
    bytes.insert(bytes.end(), content.begin(), content.end());
    bytes.push_back(0xEE); // padding of the frame
    return bytes;
}

Bytes after(Bytes start, const Bytes& more) {
    for (const std::uint8_t byte : more)
        start.push_back(byte);
    return start;
}

// What the slave sent, and how much else there was.
std::pair<Bytes, std::uint64_t> payloads_in(const std::string& path) {
    task::CaptureFile capture(path, io::parse_endpoint("10.0.0.5:1000"), true);
    struct : task::DatagramSink {
        void take(std::span<const std::uint8_t> payload, task::Arrival) noexcept override {
            payloads.insert(payloads.end(), payload.begin(), payload.end());
        }
        void begin_session(std::string_view) noexcept override {}
        Bytes payloads;
    } sink;
    capture.deliver_all({}, sink);
    return {sink.payloads, capture.foreign()};
}

TEST(Capture, TakesTheSlavesDatagramsFromEveryLinkLayer) {
    const auto header = [](std::size_t size, std::size_t at, std::uint8_t type) {
        Bytes bytes(size);
        bytes[at] = type;
        return bytes;
    };
    const Bytes ethernet = header(14, 12, 0x08);
    Bytes vlan = header(18, 12, 0x81);
    vlan[16] = 0x08;
    Bytes ipv6 = header(14, 12, 0x86);
    ipv6[13] = 0xDD;
    const TemporaryFile mixed(capture_of(1, {after(ethernet, ipv4(1)),
                                             after(ethernet, ipv4(2, 6)),
                                             after(vlan, ipv4(3)),
                                             after(ethernet, ipv4(4, 5, 0x20)),
                                             after(ethernet, ipv4(4, 5, 0x01)),
                                             after(ethernet, ipv4(5, 5, 0, 6)),
                                             after(ipv6, ipv4(6)),
                                             {},
                                             Bytes(13),
                                             Bytes(17),
                                             ethernet}));
    EXPECT_EQ(payloads_in(mixed.path()), std::pair(Bytes({1, 3}), std::uint64_t{9}));
    Bytes tags = header(22, 12, 0x88); // a tag of the provider and one of the customer
    tags[13] = 0xA8;
    tags[16] = 0x81;
    tags[20] = 0x08;
    const Bytes udp = {1000 >> 8, 1000 & 0xFF, 0, 9, 0, 18, 0, 0}; // and 10 bytes
    const Bytes eight(8, 7);
    const TemporaryFile pieces(capture_of(
        1, {after(tags, fragment(1, 0x0002, {8, 8})), after(tags, fragment(2, 0x2000, udp)),
            after(tags, fragment(1, 0x2000, udp)), after(tags, fragment(3, 0x0002, {9, 9})),
            after(tags, fragment(1, 0x2001, eight))}));
    EXPECT_EQ(payloads_in(pieces.path()), std::pair(after(eight, {8, 8}), std::uint64_t{2}));
    for (const auto& [type, link] : {std::pair(113U, header(16, 14, 0x08)),
                                     {276U, header(20, 0, 0x08)},
                                     {101U, Bytes()},
                                     {0U, header(4, 0, 2)}}) {
        const TemporaryFile file(capture_of(type, {after(link, ipv4(1))}));
        EXPECT_EQ(payloads_in(file.path()).first, Bytes{1}) << type;
    }
}

// ---- files that users write ----

// Each reader with what it says of a text, after the file's name; empty when the text is right.
TEST(TextFiles, NameTheLineThatIsWrong) {
    using Reader = std::function<void(const std::string&)>;
    const Reader table = task::read_measurement_table;
    const Reader variables = halmor_standin::read_variables_file;
    const Reader spec = [](const std::string& path) {
        if (const auto file = task::read_spec_file(path); !file.faults.empty())
            throw file.faults[0];
    };
    const Reader capture = payloads_in;
    const std::string server = "@XCP_SERVER\nhost:1\n$\n";
    const std::string raw = capture_of(101, {ipv4(1)});
    const std::string x50(50, 'x');
    const struct {
        const Reader& read;
        std::string text;
        std::string error;
    } cases[] = {
        {table,
         "# comment\n\nm,0,1,2,4,16 # first\r\n m , 0,1,0.5,-2.0,2,0,-1e9,1.8e19\n---------\nx\n",
         ""},
        {table, "a,0,0,0,1\n",
         ":1: expected 6 fields (a measurement) or 9 or 10 (a conversion), found 5"},
        {table,
         "a,0,0,0,2,0\na,0,0,1,0,0,0,0,inf, SWORD \nb,0,0,1,8,0\nb,0,0,1,0,0,0,-1,1,A_INT64 0Xf\n",
         ""},
        {table, "a,0,0,0,2,0\na,0,0,1,0,0,0,0,1,SHORT\n",
         ":2: field 10 is no data type: \"SHORT\""},
        {table, "a,0,0,0,2,0\na,0,0,1,0,0,0,0,1,\n", ":2: field 10 is no data type: \"\""},
        {table, "a,0,0,0,2,0\na,0,0,1,0,0,0,0,1,UWORD 12\n",
         ":2: the bit mask is no number such as 0x0FF0: 12"},
        {table, "a,0,0,0,4,0\na,0,0,1,0,0,0,0,1,FLOAT32_IEEE 0x1\n",
         ":2: FLOAT32_IEEE has no bit mask"},
        {table, "a,0,0,0,4,0\na,0,0,1,0,0,0,0,1,SWORD\n", ":2: a has 4 bytes, SWORD has 2"},
        {table, "a,0,0,0,1,0\nb,0,x,0,1,0\n", ":2: field 3 is no integer: \"x\""},
        {table, "# comment\n\na,0,0,0,1,256\n", ":3: field 6 is no number from 0 to 255: \"256\""},
        {table, "a,0,0,0,99999999999,0\n", ":1: field 5 is no integer: \"99999999999\""},
        {table, ",0,0,0,1,0\n", ":1: no measurement name"},
        {table, "a,0,0,0,1,0\na,0,0,1.5x,0,0,0,0,0\n", ":2: field 4 is no number: \"1.5x\""},
        {table, "a,0,0,0,1,0\na,1,0,1,0,0,0,0,0\n",
         ":2: conversion for a, which DAQ list 1 does not have"},
        {variables, "# bench\n\nspeed real   # rpm\r\n\tgear integer gearbox\n", ""},
        {variables, "a real\nb\n", ":2: expected NAME KIND [TASK], found 1 words"},
        {variables, "a real b c", ":1: expected NAME KIND [TASK], found 4 words"},
        {variables, "\na Real", ":2: kind must be integer or real, found Real"},
        {variables, "a real\nb real\na integer\n", ":3: variable defined twice: a"},
        {variables, "a real " + x50, ":1: task name longer than 49 characters"},
        {spec, server + "@LIST1\nl DAQ t\na b -\na b c 4 ignored\n$\nanything goes\n", ""},
        {spec, "@XCP_SERVER\n\n", ":2: no server"},
        {spec, "@XCP_SERVER\n$\n", ":1: no server"},
        {spec, "@XCP_SERVER\nhost, port\n$\n",
         ":2: expected ADDRESS:PORT, with a port from 1 to 65535"},
        {spec, server + "@A2L_FILE\n$\n", ":4: no A2L file"},
        {spec, server + "@LIST2\nl DAQ\n$\n", ":5: a list begins with NAME RESOURCE TRIGGER"},
        {spec, server + "@LIST2\n$\n", ":4: a list begins with NAME RESOURCE TRIGGER"},
        {spec, server + "@LIST2\nl daq t\n$\n", ":5: resource must be DAQ or STIM, found daq"},
        {spec, server + "@LIST2\nl DAQ t\na -\n$\n", ":6: expected NAME TAG VARIABLE [OPTION]"},
        {spec, server + "@LIST2\nl DAQ t\na - -\n@LIST1\nm DAQ t\n$\n",
         ":7: @LIST1 begins before the $ that ends the list"},
        {spec, server + server, ":4: @XCP_SERVER is there already, in line 1"},
        {spec, "@REG_NAME\n" + x50 + "\n$\n" + server,
         ":2: registration name longer than 49 characters"},
        {spec, server + "@LIST4\nl DAQ t\n" + x50 + x50 + " - -\n$\n",
         ":6: variable's name longer than 80 characters"},
        {spec, server + std::string(1024, '#'), ":4: line longer than 1023 characters"},
        {spec, server + "@LIST4\r\nl\tDAQ t\r\na\v - -\n$\n", ":6: line with control characters"},
        {capture, raw, ""},
        {capture, capture_of(147, {}), ": link type 147 is not supported"},
        {capture, raw.substr(0, raw.size() - 1), ": truncated dump file; .*"},
    };
    for (const auto& c : cases) {
        const TemporaryFile file(c.text);
        std::string error;
        try {
            c.read(file.path());
        } catch (const io::FileError& caught) {
            error = std::string(caught.what()).substr(file.path().size());
        }
        if (c.error.ends_with(".*"))
            error = error.substr(0, c.error.size() - 2) + ".*";
        EXPECT_EQ(error, c.error) << c.text;
    }
    for (const Reader& read : {table, variables, spec, capture})
        for (const char* path : {"/nonexistent", "/"})
            EXPECT_THROW(read(path), io::FileError);
}

TEST(SpecFile, GivesBothNamesOfAMeasurementWithTheirLine) {
    const TemporaryFile spec("@LIST3\nslow DAQ e10\na - -\nb - hostB\n$\n@XCP_SERVER\nh\n$\n");
    const auto lists = task::read_spec_file(spec.path()).lists;
    ASSERT_EQ(lists.size(), 1U);
    EXPECT_EQ(std::tuple(lists[0].line, lists[0].daqList, lists[0].name, lists[0].trigger),
              std::tuple(2U, 2, "slow", "e10"));
    const auto& listed = lists[0].measurements.at(1);
    EXPECT_EQ(std::tuple(listed.line, listed.measurement, listed.variable),
              std::tuple(4U, "b", "hostB"));
    EXPECT_EQ(lists[0].measurements[0].variable, "a");
}

// ---- integer conversions ----

// The library's own rules over every raw value are the judge.
template <class Raw>
bool is_exact(const task::ConversionLine& c) {
    const xcp_daq::Conversion rules{c.factor, c.offset, c.lowerLimit, c.upperLimit};
    for (int raw = 0; raw <= std::numeric_limits<Raw>::max(); ++raw) {
        const double linear =
            xcp_daq::check_bounds(raw * c.factor + c.offset, c.upperLimit, c.lowerLimit);
        if (xcp_daq::convert_to_integer(static_cast<Raw>(raw), rules) != std::trunc(linear))
            return false;
    }
    return true;
}

TEST(IntegerConversion, IsCalledExactWhenEveryRawValueIs) {
    std::mt19937 random(7);
    const double numbers[] = {0, 1, -1, 2, 0.5, -0.25, 0.1, 10, -40, 100, 255, 256, 1000, 65535};
    const auto number = [&] { return numbers[random() % std::size(numbers)]; };
    int exact = 0;
    for (int i = 0; i < 1500; ++i) {
        const task::ConversionLine c{"m", 0, 0, number(), number(), 0, 0, number() - 100, number()};
        for (const int size : {1, 2}) {
            const std::string fault = task::inexact_integer(size, c);
            exact += fault.empty() ? 1 : 0;
            if (fault.empty()) {
                ASSERT_TRUE(size == 1 ? is_exact<std::uint8_t>(c) : is_exact<std::uint16_t>(c))
                    << size << ": " << c.factor << ' ' << c.offset << ' ' << c.lowerLimit << ' '
                    << c.upperLimit;
            }
        }
    }
    EXPECT_GT(exact, 300);
}

TEST(IntegerConversion, NamesTheRangeThatIsLeft) {
    const double inf = HUGE_VAL;
    const struct {
        int size;
        double factor, offset, lower, upper;
        std::string fault;
    } cases[] = {
        {1, 1, 0, -100, -50, ""},
        {1, 2, 0, 0, 1000, "values of raw * factor + offset run from 0 to 510, and 0 to 255 is"},
        {1, 1, 0, 1e10, 1e10,
         "limited values run from 10000000000 to 10000000000, and -2147483648"},
        {1, 1, 0, 50, 40, "the lower limit, 50, lies above the upper one"},
        {2, 2, 0, 0, 1e6, "values of raw * factor run from 0 to 131070, and 0 to 65535 is"},
        {2, 1, -1, 0, 100, "values of raw * factor + offset run from -1 to 65534, and 0 to 42949"},
        {2, 1, 0, -100, -50, "limited values run from -50 to -50, and 0 to 65535 is"},
        {2, 0.5, 0.5, 0, 100, "raw * factor is cut to a whole number before 0.5 is added"},
        {4, 1, -5, -100, 100,
         "values of raw * factor + offset run from -5 to 4294967290, and 0 to"},
        {4, 1, 0, 0, 4e9, "limited values run from 0 to 4000000000, and -2147483648 to 2147483647"},
        {4, 0.5, -0.5, 0, 1e9, ""},
        {8, 1, 0, 0, 9, "values of raw * factor + offset run from 0 to 18446744073709551616, and"},
        {8, 0.5, 0, -1, 100, "limits run from -1 to 100, and 0 to 18446744073709551615 is"},
        {8, 0.5, 0, 0, inf, "limits run from 0 to inf, and 0 to 18446744073709551615 is"},
        {8, 0.5, 0, 0, 3e9, "limited values run from 0 to 3000000000, and 0 to 2147483647 is"},
        {8, 1e-4, 0, 0, 2e8, ""},
        {4, std::nan(""), 0, 0, 1, "values of raw * factor + offset run from"},
    };
    for (const auto& c : cases) {
        const std::string fault =
            task::inexact_integer(c.size, {"m", 0, 0, c.factor, c.offset, 0, 0, c.lower, c.upper});
        EXPECT_TRUE(c.fault.empty() ? fault.empty() : fault.starts_with(c.fault)) << fault;
    }
}

// ---- raw words ----

std::vector<task::TableLine> table_of(const std::string& text) {
    return task::read_measurement_table(TemporaryFile(text).path());
}

TEST(RawWords, TakeThePlacesOfTheValuesInTheTable) {
    const task::VariableKinds kinds = {{"a", VariableKind::real}, {"b", VariableKind::integer}};
    const auto table = table_of("a,0,0,0,8,16\nx,0,0,1,8,16\nb,0,0,2,2,16\na,1,0,3,8,0\n"
                                "a,0,0,2,1,3,0,0,9,A_INT64\nx,0,0,1,0,0,0,0,1,A_INT64\n"
                                "b,0,0,1,0,0,0,0,1,SWORD\na,1,0,2,1,3,0,0,9,A_INT64\n");
    EXPECT_EQ(table_text(library_calls(table, raw_forms(table, kinds, "t"))),
              "a,0,0,0,4,16\na#1,0,0,1,4,16\nx,0,0,2,8,16\nb,0,0,3,2,16\n"
              "a,1,0,3,4,0\na#1,1,0,4,4,0\n"
              "a,0,0,1,0,3,1,0,4294967295\na#1,0,0,1,0,3,1,0,4294967295\n"
              "x,0,0,1,0,0,0,0,1,A_INT64\nb,0,0,1,0,0,1,0,65535\n"
              "a,1,0,1,0,3,1,0,4294967295\na#1,1,0,1,0,3,1,0,4294967295\n")
        << "x is a filler";
    for (const char* other : {"a,1,0,1,1,0,0,0,9,A_INT64\n", "a,1,0,2,1,0,0,0,9\n", ""}) {
        const auto lists =
            table_of("a,0,0,0,8,0\na,1,0,0,8,0\na,0,0,2,1,0,0,0,9,A_INT64\n" + std::string(other));
        EXPECT_THROW(raw_forms(lists, kinds, "t"), io::FileError) << other;
    }
}

TEST(RawWords, AreLeftToTheLibraryWhereItsConversionIsExact) {
    const task::VariableKinds kinds = {{"r", VariableKind::real}, {"i", VariableKind::integer}};
    const std::pair<const char*, bool> cases[] = {
        {"r,0,0,2,-1,0,0,0,9,ULONG", true},     {"r,0,0,1,0,0,1,0,9,A_UINT64", true},
        {"r,0,0,1,0,0,0,0,9,A_UINT64", false},  {"r,0,0,1,0,0,1,0,9,SLONG", false},
        {"r,0,0,1,0,0,1,0,9,ULONG 0xF", false}, {"i,0,0,1,0,0,1,0,9,ULONG", true},
        {"i,0,0,1,-40,0,1,-40,9,ULONG", false}};
    for (const auto& [line, left] : cases) {
        const int size = std::string_view(line).find("64") == std::string_view::npos ? 4 : 8;
        auto table = table_of(fmt::format("{},0,0,0,{},0\n{}\n", line[0], size, line));
        leave_to_library(table, kinds);
        EXPECT_EQ(!std::get<task::ConversionLine>(table[1].call).type, left) << line;
    }
}

// ---- CTR ----

auto losses_of(const std::vector<std::uint16_t>& ctrs) {
    task::MessageCounter counter;
    for (const std::uint16_t ctr : ctrs)
        counter.take(table::message({0, 0, 1}, ctr));
    const auto c = counter.counts();
    return std::tuple(c.gaps, c.missing, c.late, c.repeated);
}

TEST(MessageCounter, TellsGapsFromRepeats) {
    EXPECT_EQ(losses_of({65534, 65535, 0, 1}), std::tuple(0U, 0U, 0U, 0U)) << "anywhere, wraps";
    EXPECT_EQ(losses_of({65535, 2, 3, 5}), std::tuple(2U, 3U, 0U, 0U));
    EXPECT_EQ(losses_of({7, 8, 8, 9, 7}), std::tuple(0U, 0U, 0U, 2U));
    EXPECT_EQ(losses_of({0x8000, 0}), std::tuple(1U, 0x7FFFU, 0U, 0U)) << "the furthest future";
    EXPECT_EQ(losses_of({0x8000, 1}), std::tuple(0U, 0U, 0U, 1U)) << "the furthest past";
    EXPECT_EQ(losses_of({65534, 1, 0, 2, 65535, 0}), std::tuple(1U, 0U, 2U, 1U)) << "then again";

    std::vector<std::uint16_t> twoRounds = {9, 11};
    for (std::uint32_t ctr = 12; ctr < 0x10000 + 100; ++ctr)
        twoRounds.push_back(static_cast<std::uint16_t>(ctr));
    twoRounds.push_back(10);
    EXPECT_EQ(losses_of(twoRounds), std::tuple(1U, 1U, 0U, 1U)) << "10 came in the second round";
}

TEST(MessageCounter, CountsPacketsByClassAndDatagramsThatAreCutOff) {
    task::MessageCounter counter;
    Bytes payload = table::datagram({{0, 0, 1}, {0xFF}, {0xBF, 1}, {}});
    counter.take(payload);
    payload.push_back(9);
    counter.take(payload);
    const auto c = counter.counts();
    EXPECT_EQ(std::tuple(c.datagrams, c.messages, c.daqPackets, c.cutOff, c.bytes),
              std::tuple(2U, 8U, 4U, 1U, 2 * payload.size() - 1));
}

// ---- packets ----

TEST(PacketWatch, HandsOnTheRestOfADatagramInPiecesAsTheyLie) {
    const api_xcp_daq object;
    table::add_plain("a", 1, 0, 0, 1, MODE_TIMESTAMP);
    table::add_plain("b", 1, 1, 0, 1, MODE_TIMESTAMP);
    table::add_plain("gap", 1, 2, 1, 1);
    const auto message = [](const Bytes& packet) { return table::message(packet); };
    const Bytes stamped = message({0, 1, 9, 9, 9, 9, 7});
    const Bytes later = message({1, 1, 7});
    const Bytes service = message({0xFC, 1});
    const Bytes unknown[] = {message({0, 0, 7}), message({3, 1, 7}), message({2, 1, 7}),
                             message({0, 4}), message({0})};
    const struct {
        std::vector<Bytes> messages;
        std::vector<Bytes> pieces; // that reach the library
        std::size_t doubts = 0;
    } cases[] = {
        {{stamped, later, service}, {after(stamped, later)}}, // the task shows what it says
        {{unknown[0], stamped, unknown[1], unknown[2], later, {9}},
         {stamped, after(later, {9})},
         4},
        {{unknown[3], unknown[4]}, {}, 3},
        {{stamped, message({0, 1, 7, 8})}, {after(stamped, message({0, 1, 7, 8}))}, 1},
        {{later}, {later}, 1}, // no timestamp
    };
    for (const auto& c : cases) {
        task::PacketWatch watch;
        Bytes payload;
        for (const Bytes& bytes : c.messages)
            payload = after(payload, bytes);
        std::vector<Bytes> pieces;
        watch.take(payload, [&](const std::uint8_t* data, std::uint64_t length) {
            pieces.emplace_back(data, data + length);
        });
        EXPECT_EQ(pieces, c.pieces);
        EXPECT_EQ(watch.doubts().size(), c.doubts);
        EXPECT_EQ(watch.misfits(), c.doubts > 0);
    }
}

// ---- sample time ----

TEST(SampleTimeWatch, TellsJumpsOfMoreThanASecondAndValuesWithoutATime) {
    const Variable a("a", VariableKind::real, "");
    task::SampleTimeWatch watch;
    for (const timespec& time : {timespec{0, 0}, {100, 0}, {101, 0}, {102, 1}, {101, 0}, {101, 0}})
        watch.take(a, time);
    EXPECT_EQ(watch.untimed(), 1U);
    EXPECT_EQ(watch.jumps(), 2U) << "the first timestamp is none, nor is a second exactly";
    EXPECT_EQ(watch.first_jumps().at(0).from.tv_sec, 101);
    EXPECT_EQ(watch.first_jumps().at(0).to.tv_nsec, 1);
    EXPECT_EQ(watch.first_jumps().at(1).to.tv_sec, 101);
}

// ---- live table ----

// Characters of a UTF-8 text.
auto columns(const std::string& text) {
    return std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; });
}

TEST(LiveTable, ShowsWhatFitsAndWhatHappened) {
    auto& store = VariableStore::instance();
    for (int i = 0; i < 20; ++i)
        store.define("variable" + std::to_string(i), VariableKind::real, "");
    store.define("Öldruck_hinter_dem_Filter_links", VariableKind::real, "");
    task::LiveTable table;
    task::RunCounts counts;
    for (counts.seconds = 0.0; counts.seconds < 3.0; counts.seconds += 0.5) {
        for (int i = 0; i < 50; ++i)
            store.find("variable0")->write(counts.seconds, {100, 5000000});
        table.lines(120, 30, counts);
    }
    const auto lines = table.lines(120, 9, counts);
    ASSERT_EQ(lines.size(), 9U);
    EXPECT_NE(lines[3].find("100.005      50/s  ▁▂▄▅▇█"), std::string::npos)
        << lines[3] << ": 100 updates a second until half a second ago";
    EXPECT_NE(lines[4].find("never came"), std::string::npos);
    EXPECT_EQ(lines[8], "... and 16 more");
    counts.misfits = true;
    counts.losses.foreign = 3;
    const auto all = table.lines(80, 30, counts);
    EXPECT_NE(all[1].find("waiting  misfit  3 da"), std::string::npos) << all[1];
    EXPECT_EQ(all.size(), 3U + 21U);
    EXPECT_TRUE(all[3].ends_with("█")) << all[3] << ": 80 columns hold a row";
    EXPECT_TRUE(all[23].starts_with("Öldruck_hinter_de~  ")) << all[23];
    for (const std::string& line : table.lines(30, 30, counts))
        EXPECT_LE(columns(line), 30) << line;
}

// ---- order of samples ----

// Three stamped lists of one byte an ODT; the first has two ODTs.
class SampleOrders {
  public:
    explicit SampleOrders(int hold = 10)
        : order((define(), std::chrono::milliseconds(hold)),
                [this](const std::uint8_t* data, std::uint64_t length) {
                    xcp::MessageWalk messages({data, length});
                    for (xcp::Message message{}; messages.next(message);)
                        came.push_back({message.packet.begin(), message.packet.end()});
                }) {}

    static Bytes packet(std::uint8_t list, std::uint64_t time, std::uint8_t value) {
        Bytes packet = {0, list};
        for (int i = 0; i < 4; ++i)
            packet.push_back(static_cast<std::uint8_t>(time >> 8 * i));
        packet.push_back(value);
        return packet;
    }
    void take(const Bytes& packet, std::int64_t now_us) {
        order.take(table::message(packet), at(now_us));
    }
    static task::Arrival at(std::int64_t now_us) {
        return task::Arrival(std::chrono::hours(1)) + std::chrono::microseconds(now_us);
    }

    task::SampleOrder order;
    std::vector<Bytes> came;

  private:
    static void define() {
        static const api_xcp_daq object;
        if (!appData.daqList[0].odtEntryMap.empty())
            return;
        for (int list = 0; list < 3; ++list)
            api_xcp_daq::addMeasurement("v" + std::to_string(list), list, 0, 0, 1, MODE_TIMESTAMP);
        api_xcp_daq::addMeasurement("w", 0, 1, 0, 1, MODE_TIMESTAMP);
    }
};

TEST(SampleOrder, HoldsASampleUntilEveryListIsLaterOrForTheHold) {
    SampleOrders samples;
    const auto packet = SampleOrders::packet;
    const Bytes second = {1, 0, 9};
    samples.take(packet(1, 1000, 1), 0);
    samples.take(packet(2, 1500, 2), 100);
    samples.take(packet(0, 900, 3), 200); // overtaken, and its second packet comes last
    samples.take(packet(1, 2000, 4), 300);
    samples.take(second, 400);
    EXPECT_EQ(samples.came, (std::vector<Bytes>{packet(0, 900, 3), second}));
    samples.take(packet(0, 2100, 6), 10'050); // the first has been held for 10 ms
    EXPECT_EQ(samples.came.size(), 4U) << "and every list is later than 1500";
    samples.order.advance(SampleOrders::at(90'000)); // another datagram may bring an earlier one
    EXPECT_EQ(samples.came.size(), 4U);
    samples.order.advance(SampleOrders::at(110'050));
    EXPECT_EQ(samples.came.at(4), packet(1, 2000, 4));
    samples.take(packet(2, 1800, 5), 110'400); // too late: raised when it goes
    samples.order.flush();
    EXPECT_EQ(samples.came.at(5), packet(2, 2000, 5));
    EXPECT_EQ(samples.came.at(6), packet(0, 2100, 6)) << "its second packet never came";
    EXPECT_EQ(samples.order.counts().raised, 1U);
    EXPECT_EQ(samples.order.counts().largestRaise_ns, 200);

    SampleOrders atOnce(0);
    atOnce.take(packet(1, 1000, 1), 0);
    EXPECT_EQ(atOnce.came.size(), 1U);
}

// What comes within the hold goes out by the slave's own time, across the wraps of the timestamp.
TEST(SampleOrder, SortsWhateverComesWithinTheHold) {
    std::mt19937 random{14};
    SampleOrders samples;
    struct Sent {
        std::uint64_t time_ns, arrival_us;
        Bytes packet;
    };
    std::vector<Sent> sent;
    std::uint64_t time = 0xF0000000;
    for (int i = 0; i < 20'000; ++i) {
        time += 1 + random() % 2'000'000;
        const auto list = static_cast<std::uint8_t>(1 + random() % 2);
        const std::uint64_t arrival = time / 1000 + random() % 9000;
        sent.push_back(
            {time, arrival, SampleOrders::packet(list, time, static_cast<std::uint8_t>(random()))});
    }
    std::vector<Sent> arriving = sent;
    std::stable_sort(arriving.begin(), arriving.end(),
                     [](const Sent& a, const Sent& b) { return a.arrival_us < b.arrival_us; });
    for (const Sent& each : arriving)
        samples.take(each.packet, static_cast<std::int64_t>(each.arrival_us));
    samples.order.flush();
    ASSERT_EQ(samples.came.size(), sent.size());
    for (std::size_t i = 0; i < sent.size(); ++i)
        ASSERT_EQ(samples.came[i], sent[i].packet) << i;
    EXPECT_EQ(samples.order.counts().raised, 0U);
    EXPECT_GT(time >> 32, 3U) << "wraps";
}

// ---- recording and dump ----

// What is reported at the end.
template <class Output>
std::string losses_of(Output& output) {
    try {
        output.close();
    } catch (const io::FileError& error) {
        return error.what();
    }
    return "nothing";
}

bool never() {
    return false;
}

// The fast way of whole numbers against the text of any double, at its borders.
TEST(CsvRecorder, WritesTheShortestTextOfEveryValue) {
    const auto& variable = VariableStore::instance().define("v", VariableKind::real, "");
    const TemporaryFile file;
    const auto& other = VariableStore::instance().define("w", VariableKind::real, "");
    std::string expected = "sample_time,v,w\n";
    task::CsvRecorder recorder(file.path(), task::NoRoom::waits, never);
    for (const double value :
         {0.0, -0.0, 1.0, -7.0, 0.1, 1e15 - 1, 1e15, -1e15, 1e15 + 1, 1e16, 1e17, 0x1p53,
          4294967295.5, -0x1p63, 1e-7, double{NAN}, -double{INFINITY}}) {
        recorder.take(variable, value, {5, 6});
        expected += fmt::format("5.000000006,{},\n", value);
    }
    recorder.take(other, 2, {5, 7});
    expected += "5.000000007,,2\n";
    recorder.gap({5, 7}, {9, 0});
    expected += "5.000000007,nan,nan\n";
    recorder.take(other, 3, {9, 0});
    expected += "9.000000000,,3\n";
    EXPECT_EQ(losses_of(recorder), "nothing");
    EXPECT_EQ(file.text(), expected);
}

constexpr int too_many = 3'000'000; // values, for the recorder's ring

TEST(CsvRecorder, NeverWaitsForADiskThatCannotFollow) {
    std::signal(SIGPIPE, SIG_IGN);
    auto& variable = VariableStore::instance().define("a\"b", VariableKind::real, "");
    VariableStore::instance().define("c,d", VariableKind::real, "");
    const TemporaryFile place;
    std::filesystem::remove(place.path());
    ASSERT_EQ(mkfifo(place.path().c_str(), 0600), 0);
    const int reader = open(place.path().c_str(), O_RDONLY | O_NONBLOCK);
    task::CsvRecorder recorder(place.path(), task::NoRoom::loses, never);
    for (int i = 0; i < too_many; ++i)
        recorder.take(variable, 0.5, {7, i / 2}); // two of each time
    std::string start(64, '\0');
    ASSERT_EQ(read(reader, start.data(), start.size()), 64);
    EXPECT_TRUE(
        start.starts_with("sample_time,\"a\"\"b\",\"c,d\"\n7.000000000,0.5,\n7.000000000,"));
    close(reader);
    const std::string losses = losses_of(recorder);
    std::smatch count;
    ASSERT_TRUE(std::regex_match(
        losses, count,
        std::regex(place.path() + ": (\\d+) lines were not written: Broken pipe; "
                                  "(\\d+) values were not written: the disk cannot follow")))
        << losses;
    const int unwritten = std::stoi(count[1]) + std::stoi(count[2]);
    EXPECT_LT(unwritten, too_many);
    EXPECT_GT(unwritten, too_many - 10'000) << "the pipe holds 64 KiB of lines";
}

TEST(CsvRecorder, TellsADiskFromFormattingThatCannotFollow) {
    const auto& variable = VariableStore::instance().define("v", VariableKind::real, "");
    for (int i = 0; i < 100; ++i) // empty cells
        VariableStore::instance().define(fmt::format("w{}", i), VariableKind::real, "");
    task::CsvRecorder recorder("/dev/null", task::NoRoom::loses, never);
    for (int i = 0; i < too_many; ++i)
        recorder.take(variable, i / 7.0, {7, i});
    const std::string losses = losses_of(recorder);
    EXPECT_TRUE(losses.ends_with(" values were not written: formatting cannot follow")) << losses;
}

TEST(FrameDump, TellsWhatTheDiskRefused) {
    const std::string path = "/tmp/api_xcp_frame_daq_" + std::to_string(getpid()) + ".txt";
    std::filesystem::create_symlink("/dev/full", path);
    task::FrameDump dump(task::NoRoom::waits, never);
    // Two packets, a response between them; one that is cut off.
    dump.take(Bytes{1, 0, 0, 0, 7, 1, 0, 1, 0, 0xFF, 2, 0, 2, 0, 8, 9, 5, 0, 3, 0, 1});
    dump.take(Bytes{1, 0, 4, 0, 7});
    EXPECT_EQ(losses_of(dump), path + ": 3 packets were not written: No space left on device");
    std::filesystem::remove(path);
}

} // namespace
