// The parts of the task that read what users write, and the one that watches CTR.

#include "capture_source.h"
#include "csv_recorder.h"
#include "file_error.h"
#include "live_view.h"
#include "measurement_table.h"
#include "message_counter.h"
#include "sample_time_watch.h"
#include "spec_file_check.h"
#include "table.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <functional>
#include <regex>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>

using halmor_standin::FileError;
using table::Bytes;

namespace {

// The cause, behind the file's name; empty when there was none.
std::string error_in(const std::string& text, const std::function<void(const std::string&)>& read) {
    const TemporaryFile file(text);
    try {
        read(file.path());
        return "";
    } catch (const FileError& error) {
        return std::string(error.what()).substr(file.path().size());
    }
}

// ---- measurement table ----

TEST(MeasurementTableFile, ReadsTheLinesOfTheMeasurementLog) {
    const TemporaryFile file(
        "# comment\n\nspeed,0,1,2,4,16 # the first\r\n speed , 0,1,0.5000,-2.0000,2,"
        "0,-1e9,1.8e19\n---------\nnot read\n");
    const auto lines = task::read_measurement_table(file.path());
    ASSERT_EQ(lines.size(), 2U);
    const auto& m = std::get<task::Measurement>(lines[0].call);
    EXPECT_EQ(std::tuple(m.name, m.daqNum, m.odtNum, m.odtEntryIndex, m.size, m.daqMode),
              std::tuple("speed", 0, 1, 2, 4, 16));
    const auto& c = std::get<task::Conversion>(lines[1].call);
    EXPECT_EQ(std::tuple(c.name, c.daqNum, c.computeInt1, c.factor, c.offset, c.computeInt2,
                         c.byteOrder, c.lowerLimit, c.upperLimit),
              std::tuple("speed", 0, 1, 0.5, -2.0, 2, 0, -1e9, 1.8e19));
}

TEST(MeasurementTableFile, NamesTheFieldThatIsWrong) {
    const auto error = [](const std::string& text) {
        return error_in(text, task::read_measurement_table);
    };
    EXPECT_EQ(error("a,0,0,0,1\n"),
              ":1: expected 6 fields (a measurement) or 9 (a conversion), found 5");
    EXPECT_EQ(error("a,0,0,0,1,0\nb,0,x,0,1,0\n"), ":2: field 3 is no integer: \"x\"");
    EXPECT_EQ(error("a,0,0,0,1,256\n"), ":1: field 6 is no number from 0 to 255: \"256\"");
    EXPECT_EQ(error("a,0,0,0,99999999999,0\n"), ":1: field 5 is no integer: \"99999999999\"");
    EXPECT_EQ(error(",0,0,0,1,0\n"), ":1: no measurement name");
    EXPECT_EQ(error("a,0,0,0,1,0\na,0,0,1.5x,0,0,0,0,0\n"), ":2: field 4 is no number: \"1.5x\"");
    EXPECT_EQ(error("a,0,0,0,1,0\na,1,0,1,0,0,0,0,0\n"),
              ":2: conversion for a, which DAQ list 1 does not have");
    EXPECT_THROW(task::read_measurement_table("/nonexistent"), FileError);
    EXPECT_THROW(task::read_measurement_table("/"), FileError);
}

// ---- spec file ----

TEST(SpecFileCheck, NamesTheLineThatTheLibraryWouldPassOver) {
    const auto error = [](const std::string& text) {
        return error_in(text, task::check_spec_file);
    };
    const std::string server = "@XCP_SERVER\nhost:1\n$\n";
    EXPECT_EQ(error(server + "@LIST1\nl DAQ t\na b -\na b c 4 ignored\n$\nanything goes here\n"),
              "");
    EXPECT_EQ(error("@REG_NAME\nname\n"), ": no section @XCP_SERVER");
    EXPECT_EQ(error("@XCP_SERVER\n\n"), ":2: no server");
    EXPECT_EQ(error(server + "@LIST2\nl DAQ\n$\n"), ":5: a list begins with NAME RESOURCE TRIGGER");
    EXPECT_EQ(error(server + "@LIST2\nl daq t\n$\n"),
              ":5: resource must be DAQ or STIM, found daq");
    EXPECT_EQ(error(server + "@LIST2\nl DAQ t\nspeed -\n$\n"),
              ":6: expected NAME TAG VARIABLE [OPTION]");
    EXPECT_EQ(error("@REG_NAME\n" + std::string(50, 'x') + "\n" + server),
              ":2: registration name longer than 49 characters");
    EXPECT_THROW(task::check_spec_file("/nonexistent"), FileError);
}

// ---- CTR ----

task::MessageCounts counted(const std::vector<std::uint16_t>& ctrs) {
    task::MessageCounter counter;
    for (const std::uint16_t ctr : ctrs) {
        const Bytes payload = table::message({0, 0, 1}, ctr);
        counter.take(payload.data(), payload.size());
    }
    return counter.counts();
}

TEST(MessageCounter, TellsGapsFromRepeats) {
    const auto losses = [](const std::vector<std::uint16_t>& ctrs) {
        const auto c = counted(ctrs);
        return std::tuple(c.gaps, c.missing, c.late, c.repeated);
    };
    EXPECT_EQ(losses({65534, 65535, 0, 1}), std::tuple(0U, 0U, 0U, 0U)) << "starts anywhere, wraps";
    EXPECT_EQ(losses({65535, 2, 3, 5}), std::tuple(2U, 3U, 0U, 0U));
    EXPECT_EQ(losses({7, 8, 8, 9, 7}), std::tuple(0U, 0U, 0U, 2U));
    EXPECT_EQ(losses({65534, 1, 0, 2, 65535, 0}), std::tuple(1U, 0U, 2U, 1U)) << "late, then again";

    std::vector<std::uint16_t> twoRounds = {9, 11};
    for (std::uint32_t ctr = 12; ctr < 0x10000 + 100; ++ctr)
        twoRounds.push_back(static_cast<std::uint16_t>(ctr));
    twoRounds.push_back(10);
    EXPECT_EQ(losses(twoRounds), std::tuple(1U, 1U, 0U, 1U)) << "10 has come in the second round";
}

TEST(MessageCounter, CountsPacketsByClassAndDatagramsThatAreCutOff) {
    task::MessageCounter counter;
    Bytes payload = table::datagram({{0, 0, 1}, {0xFF}, {0xBF, 1}, {}});
    counter.take(payload.data(), payload.size());
    payload.push_back(9);
    counter.take(payload.data(), payload.size());
    const auto counts = counter.counts();
    EXPECT_EQ(counts.datagrams, 2U);
    EXPECT_EQ(counts.messages, 8U);
    EXPECT_EQ(counts.daqPackets, 4U);
    EXPECT_EQ(counts.cutOff, 1U);
    EXPECT_EQ(counts.bytes, 2 * payload.size() - 1);
}

// ---- sample time ----

TEST(SampleTimeWatch, TellsJumpsOfMoreThanASecond) {
    const halmor_standin::Variable a("a", halmor_standin::VariableKind::real, "");
    task::SampleTimeWatch watch;
    for (const timespec& time : {timespec{0, 0}, {100, 0}, {101, 0}, {102, 1}, {101, 0}, {101, 0}})
        watch.take(a, time);
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
    auto& store = halmor_standin::VariableStore::instance();
    for (int i = 0; i < 20; ++i)
        store.define("variable" + std::to_string(i), halmor_standin::VariableKind::real, "");
    store.define("Öldruck_hinter_dem_Filter_links", halmor_standin::VariableKind::real, "");
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
    counts.losses.foreign = 3;
    const auto all = table.lines(80, 30, counts);
    EXPECT_NE(all[1].find("3 datagrams from"), std::string::npos) << all[1];
    EXPECT_EQ(all.size(), 3U + 21U);
    EXPECT_TRUE(all[3].ends_with("█")) << all[3] << ": 80 columns hold a row";
    EXPECT_TRUE(all[23].starts_with("Öldruck_hinter_de~  ")) << all[23];
    for (const std::string& line : table.lines(30, 30, counts))
        EXPECT_LE(columns(line), 30) << line;
}

// ---- recording ----

TEST(CsvRecorder, NeverWaitsForADiskThatCannotFollow) {
    std::signal(SIGPIPE, SIG_IGN);
    auto& store = halmor_standin::VariableStore::instance();
    auto& variable = store.define("a,\"b", halmor_standin::VariableKind::real, "");
    const TemporaryFile place;
    std::filesystem::remove(place.path());
    ASSERT_EQ(mkfifo(place.path().c_str(), 0600), 0);
    const int reader = open(place.path().c_str(), O_RDONLY | O_NONBLOCK);
    task::CsvRecorder recorder(place.path(), task::CsvRecorder::NoRoom::loses);
    constexpr int values = 3'000'000; // more than the recorder's buffer holds
    for (int i = 0; i < values; ++i)
        recorder.take(variable, 0.5, {i, 7});
    std::string start(64, '\0');
    ASSERT_EQ(read(reader, start.data(), start.size()), 64);
    EXPECT_TRUE(start.starts_with("sample_time,\"a,\"\"b\"\n0.000000007,0.5\n1.000000007,0.5\n"));
    close(reader);
    try {
        recorder.close();
        FAIL() << "nothing was told";
    } catch (const FileError& error) {
        std::smatch count;
        const std::string text = error.what();
        ASSERT_TRUE(std::regex_match(text, count,
                                     std::regex(place.path() +
                                                ": (\\d+) lines were not written: Broken pipe; "
                                                "(\\d+) values were not written: the disk cannot "
                                                "follow")))
            << text;
        const int unwritten = std::stoi(count[1]) + std::stoi(count[2]);
        EXPECT_LT(unwritten, values);
        EXPECT_GT(unwritten, values - 10'000) << "the pipe holds 64 KiB of lines";
    }
}

// ---- captures ----

// A pcap file of frames, one nanosecond apart.
std::string capture_of(std::uint32_t linkType, const std::vector<Bytes>& frames) {
    const auto append = [](std::string& text, std::uint32_t value) {
        text.append(reinterpret_cast<const char*>(&value), sizeof value);
    };
    std::string file;
    for (const std::uint32_t word : {0xa1b23c4dU, 0x00040002U, 0U, 0U, 65535U, linkType})
        append(file, word);
    std::uint32_t time = 0;
    for (const Bytes& frame : frames) {
        const auto size = static_cast<std::uint32_t>(frame.size());
        for (const std::uint32_t word : {0U, time++, size, size})
            append(file, word);
        file.append(frame.begin(), frame.end());
    }
    return file;
}

// An IPv4 packet from 10.0.0.5:1000 that carries one byte.
Bytes ipv4(std::uint8_t payload, std::uint8_t lastAddressByte = 5, std::uint8_t fragment = 0,
           std::uint8_t protocol = 17) {
    return {0x46,      0,           0, 33, 0,  0, fragment, 0,
            64,        protocol,    0, 0,  10, 0, 0,        lastAddressByte,
            10,        0,           0, 9,  1,  1, 1,        1, // an option of 4 bytes
            1000 >> 8, 1000 & 0xFF, 0, 9,  0,  9, 0,        0,
            payload,   0xEE}; // padding of the frame
}

Bytes behind(Bytes linkHeader, const Bytes& packet) {
    linkHeader.insert(linkHeader.end(), packet.begin(), packet.end());
    return linkHeader;
}

std::pair<Bytes, std::uint64_t> payloads_and_others(const std::string& capture) {
    const TemporaryFile file(capture);
    task::CaptureSource source(file.path(), halmor_standin::parse_endpoint("10.0.0.5:1000"), true);
    Bytes payloads;
    source.start([&](const std::uint8_t* data, std::uint64_t length) {
        payloads.insert(payloads.end(), data, data + length);
    });
    while (!source.ended())
        std::this_thread::yield();
    source.stop();
    return {payloads, source.losses().foreign};
}

TEST(Capture, TakesTheSlavesDatagramsFromEveryLinkLayer) {
    Bytes ethernet(14);
    ethernet[12] = 0x08;
    Bytes vlan(18);
    vlan[12] = 0x81;
    vlan[16] = 0x08;
    Bytes ipv6 = ethernet;
    ipv6[12] = 0x86;
    ipv6[13] = 0xDD;
    EXPECT_EQ(payloads_and_others(capture_of(1, {behind(ethernet, ipv4(1)),
                                                 behind(ethernet, ipv4(2, 6)),
                                                 behind(vlan, ipv4(3)),
                                                 behind(ethernet, ipv4(4, 5, 0x20)),
                                                 behind(ethernet, ipv4(5, 5, 0, 6)),
                                                 behind(ipv6, ipv4(6)),
                                                 {},
                                                 Bytes(13),
                                                 Bytes(17),
                                                 ethernet})),
              std::pair(Bytes({1, 3}), std::uint64_t{8}));
    Bytes cooked(16);
    cooked[14] = 0x08;
    EXPECT_EQ(payloads_and_others(capture_of(113, {behind(cooked, ipv4(1))})).first, Bytes{1});
    EXPECT_EQ(payloads_and_others(capture_of(101, {ipv4(1)})).first, Bytes{1});
    EXPECT_EQ(payloads_and_others(capture_of(0, {behind({2, 0, 0, 0}, ipv4(1))})).first, Bytes{1});
}

TEST(Capture, NamesWhatIsWrongWithTheFile) {
    const auto read = [](const std::string& path) {
        task::CaptureSource source(path, {}, false);
        source.start([](const std::uint8_t*, std::uint64_t) {});
        while (!source.ended())
            std::this_thread::yield();
        source.stop();
        source.check();
    };
    const std::string good = capture_of(101, {ipv4(1)});
    EXPECT_EQ(error_in(good, read), "");
    EXPECT_NE(error_in(good.substr(0, good.size() - 1), read), "");
    EXPECT_NE(error_in("no capture at all, but long enough", read), "");
    EXPECT_EQ(error_in(capture_of(147, {}), read), ": link type 147 is not supported");
    EXPECT_THROW(read("/nonexistent"), FileError);
}

} // namespace
