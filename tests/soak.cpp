// A slave that misbehaves in every way, over real UDP, for as long as it is told.
// Usage: soak SECONDS
//
// Datagrams are lost, doubled, swapped and cut, or random bytes; between the DAQ packets stand
// service requests, events, errors, packets of unknown lists and ODTs and jumping timestamps; now
// and then the slave pauses, or the worker is stopped and started. What was really sent is parsed
// once more here, so that every value and every printed line is known: each must come once, in
// order.

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "host/standin/variable_store.h"
#include "io/udp_receiver.h"
#include "table.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <streambuf>
#include <string>
#include <thread>

using namespace halmor_standin;
using namespace io;
using namespace std::chrono_literals;
using table::Bytes;

namespace {

constexpr int lists = 4;
constexpr int odts = 2;

std::string variable_name(int list, int odt) {
    return std::to_string(list) + std::to_string(odt);
}

// Each ODT has one 4-byte value; those of ODT 0 may be stamped.
void fill_table() {
    for (int list = 0; list < lists; ++list)
        for (int odt = 0; odt < odts; ++odt) {
            const std::string name = variable_name(list, odt);
            VariableStore::instance().define(name, VariableKind::real, "");
            table::add_plain(name, list, odt, 0, 4, odt == 0 ? MODE_TIMESTAMP : 0);
        }
}

std::uint32_t number_at(const Bytes& bytes, std::size_t at) {
    return bytes[at] | static_cast<std::uint32_t>(bytes[at + 1]) << 8 |
           static_cast<std::uint32_t>(bytes[at + 2]) << 16 |
           static_cast<std::uint32_t>(bytes[at + 3]) << 24;
}

// What should come of the datagrams that were sent, and what did.
class Ledger : public WriteObserver {
  public:
    void expect(const Bytes& payload) {
        for (std::size_t at = 0; at + 4 <= payload.size();) {
            const std::size_t length = payload[at] | static_cast<std::size_t>(payload[at + 1]) << 8;
            if (at + 4 + length > payload.size())
                return;
            const auto start = payload.begin() + static_cast<std::ptrdiff_t>(at + 4);
            expect_packet(Bytes(start, start + static_cast<std::ptrdiff_t>(length)));
            at += 4 + length;
        }
    }

    void written(const Variable& variable, double value, const timespec&) override {
        const std::lock_guard lock(mutex_);
        ++values_;
        if (expected_.empty() || expected_.front() != std::pair(variable.name(), value))
            ++wrong_;
        if (!expected_.empty())
            expected_.pop_front();
    }

    std::size_t waiting() const {
        const std::lock_guard lock(mutex_);
        return expected_.size();
    }
    std::uint64_t values() const { return values_; }
    std::uint64_t wrong() const { return wrong_; }
    std::uint64_t lines() const { return lines_; }

  private:
    void expect_packet(const Bytes& packet) {
        if (packet.size() >= 2 && packet[0] == 0xFC)
            ++lines_;
        if (packet.size() < 2 || packet[0] > 0xBF)
            return;
        if (packet[0] >= odts || packet[1] >= lists) {
            ++lines_;
            return;
        }
        const std::size_t at = packet[0] == 0 && packet.size() == 10 ? 6 : 2;
        if (packet.size() < at + 4)
            return;
        const std::lock_guard lock(mutex_);
        expected_.emplace_back(variable_name(packet[1], packet[0]), number_at(packet, at));
    }

    mutable std::mutex mutex_;
    std::deque<std::pair<std::string, double>> expected_;
    std::uint64_t values_ = 0;
    std::uint64_t wrong_ = 0;
    std::uint64_t lines_ = 0;
};

// Counts the lines that the library prints.
class LineCounter : public std::streambuf {
  public:
    std::uint64_t lines() const { return lines_; }

  private:
    int_type overflow(int_type character) override {
        const char byte = static_cast<char>(character);
        xsputn(&byte, 1);
        return character;
    }
    std::streamsize xsputn(const char* text, std::streamsize count) override {
        lines_ += static_cast<std::uint64_t>(std::count(text, text + count, '\n'));
        return count;
    }
    std::atomic<std::uint64_t> lines_ = 0;
};

class BadSlave {
  public:
    UdpEndpoint endpoint() const { return socket_.local(); }
    std::uint64_t sent() const { return sent_; }
    const std::map<std::string, std::uint64_t>& faults() const { return faults_; }

    // The next datagram, with what may happen to it.
    void step(const UdpEndpoint& master, Ledger& ledger) {
        Bytes payload = datagram();
        switch (random_() % 50) {
        case 0:
            return note("lost");
        case 1:
            send(payload, master, ledger);
            note("doubled");
            break;
        case 2:
            send(datagram(), master, ledger); // overtakes the one made before it
            note("reordered");
            break;
        case 3:
            payload.resize(random_() % payload.size());
            note("cut");
            break;
        case 4:
            for (auto& byte : payload)
                byte = static_cast<std::uint8_t>(random_() % (random_() % 2 == 0 ? 256 : 12));
            note("random bytes");
            break;
        case 5:
            if (random_() % 200 == 0) {
                std::this_thread::sleep_for(50ms);
                note("pause");
            }
            break;
        default:
            break;
        }
        send(payload, master, ledger);
    }

  private:
    void note(const std::string& fault) { ++faults_[fault]; }

    void send(const Bytes& payload, const UdpEndpoint& master, Ledger& ledger) {
        ledger.expect(payload); // before it can arrive
        socket_.send(master, payload);
        ++sent_;
    }

    Bytes datagram() {
        Bytes payload;
        for (std::size_t count = 1 + random_() % 30; count > 0; --count) {
            const Bytes bytes = table::message(packet(), ctr_++);
            payload.insert(payload.end(), bytes.begin(), bytes.end());
        }
        return payload;
    }

    Bytes packet() {
        const auto list = static_cast<std::uint8_t>(random_() % lists);
        switch (random_() % 100) {
        case 0:
            return noted("service request", {0xFC, static_cast<std::uint8_t>(random_() % 2)});
        case 1:
            return noted("event", {0xFD, 7});
        case 2:
            return noted("error", {0xFE, 0x20});
        case 3:
            return noted("unknown list", {0, static_cast<std::uint8_t>(lists + random_() % 9), 1});
        case 4:
            return noted("unknown ODT",
                         {static_cast<std::uint8_t>(odts + random_() % 99), list, 1});
        case 5:
            time_ += static_cast<std::uint32_t>(random_());
            note("timestamp jump");
            break;
        default:
            time_ += 1000;
        }
        Bytes packet = {static_cast<std::uint8_t>(random_() % odts), list};
        if (packet[0] == 0)
            append(packet, time_);
        append(packet, ++number_);
        return packet;
    }

    Bytes noted(const std::string& fault, Bytes packet) {
        note(fault);
        return packet;
    }

    static void append(Bytes& packet, std::uint32_t number) {
        for (int shift = 0; shift < 32; shift += 8)
            packet.push_back(static_cast<std::uint8_t>(number >> shift));
    }

    UdpSocket socket_{parse_endpoint("127.0.0.1:0")};
    std::mt19937 random_{2026};
    std::uint16_t ctr_ = 0;
    std::uint32_t time_ = 0;
    std::uint32_t number_ = 0;
    std::uint64_t sent_ = 0;
    std::map<std::string, std::uint64_t> faults_;
};

long resident_kilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmRSS:") {
            long kilobytes = 0;
            status >> kilobytes;
            return kilobytes;
        }
    return 0;
}

std::ptrdiff_t entries_of(const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

// Of this process; a thread that was joined may take a moment to go.
std::ptrdiff_t threads_down_to(std::ptrdiff_t expected) {
    const auto end = std::chrono::steady_clock::now() + 1s;
    std::ptrdiff_t threads = 0;
    do
        threads = entries_of("/proc/self/task");
    while (threads > expected && std::chrono::steady_clock::now() < end);
    return threads;
}

class Checks {
  public:
    template <class A, class B>
    void equal(const char* what, const A& found, const B& expected) {
        std::printf("%-34s %12lld, expected %lld\n", what, static_cast<long long>(found),
                    static_cast<long long>(expected));
        failed_ = failed_ || static_cast<long long>(found) != static_cast<long long>(expected);
    }
    void at_most(const char* what, long found, long limit) {
        std::printf("%-34s %12ld, at most %ld\n", what, found, limit);
        failed_ = failed_ || found > limit;
    }
    bool failed() const { return failed_; }

  private:
    bool failed_ = false;
};

int soak(double seconds) {
    std::thread([] {}).join(); // a sanitizer starts a thread of its own with the first
    const std::ptrdiff_t files = entries_of("/proc/self/fd");
    const std::ptrdiff_t threads = threads_down_to(1);
    LineCounter lines;
    std::streambuf* output = std::cout.rdbuf(&lines);
    fill_table();
    Ledger ledger;
    VariableStore::observe(&ledger);
    long warmMemory = 0;
    std::uint64_t dropped = 0;
    std::map<std::string, std::uint64_t> faults;
    std::uint64_t sent = 0;
    std::uint64_t received = 0;
    {
        api_xcp_daq daq;
        daq.startWorkerThreads();
        api_xcp_daq::enableDAQProcessing();
        BadSlave slave;
        UdpReceiver receiver(UdpSocket(parse_endpoint("127.0.0.1:0")), slave.endpoint(),
                             api_xcp_daq_push_frame);
        const auto start = std::chrono::steady_clock::now();
        const auto elapsed = [&] {
            return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        };
        while (elapsed() < seconds) {
            slave.step(receiver.local(), ledger);
            if (slave.sent() % 500 == 0) {
                daq.stopWorkerThreads();
                daq.startWorkerThreads();
            }
            while (ledger.waiting() > 20000 || slave.sent() > receiver.counters().datagrams + 1000)
                std::this_thread::yield();
            if (warmMemory == 0 && elapsed() > seconds / 3)
                warmMemory = resident_kilobytes();
        }
        receiver.stop();
        while (XCPFrameBuffer.size() > 0)
            std::this_thread::yield();
        daq.stopWorkerThreads();
        dropped = receiver.counters().kernelDrops;
        received = receiver.counters().datagrams;
        sent = slave.sent();
        faults = slave.faults();
    }
    std::cout.rdbuf(output);
    for (const auto& [fault, count] : faults)
        std::printf("injected: %-24s %12llu\n", fault.c_str(),
                    static_cast<unsigned long long>(count));
    std::printf("%-34s %12llu\n", "values", static_cast<unsigned long long>(ledger.values()));
    Checks checks;
    checks.equal("datagrams received", received, sent);
    checks.equal("kernel drops", dropped, 0);
    checks.equal("values wrong or out of order", ledger.wrong(), 0);
    checks.equal("values that did not come", ledger.waiting(), 0);
    checks.equal("lines printed", lines.lines(), ledger.lines());
    checks.equal("open files", entries_of("/proc/self/fd"), files);
    checks.equal("threads", threads_down_to(threads), threads);
#if !defined(XCP_DAQ_SANITIZED) // a sanitizer keeps freed memory for a while
    checks.at_most("kB of memory since the warm-up", resident_kilobytes() - warmMemory, 4096);
#endif
    return checks.failed() ? 1 : 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2)
        return soak(std::atof(argv[1]));
    std::fprintf(stderr, "usage: soak SECONDS\n");
    return 2;
}
