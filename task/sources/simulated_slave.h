#pragma once
// An XCP slave that sends what the library's measurement table lays out, over UDP: each DAQ list
// with its own period, the first ODT of a sample stamped when the list's mode says so, every raw
// value from a known sequence. It remembers what went out.
//
// It has its layout from the receiver's own table. So a run with it proves that what is sent is
// delivered and converted; whether the table is true to a real slave, it cannot tell.
//
// The slave's clock counts nanoseconds in 32 bits and starts 1.5 s before a wrap. Lists that are
// due at the same time are stamped in the order in which they are sent.

#include "api_xcp_daq.h"
#include "simulated_link.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace task {

class SimulatedSlave {
  public:
    // Reads the library's measurement table, which stays as it is from here on, and binds a socket
    // on the loopback interface. Throws std::system_error.
    explicit SimulatedSlave(const std::set<SimulatedFault>& faults);
    ~SimulatedSlave();

    const io::UdpEndpoint& endpoint() const { return link_.endpoint(); }

    void start(const io::UdpEndpoint& master);
    void stop(); // after it nothing is sent any more

    // After stop().
    const std::map<std::string, SentValue>& sent() const { return sent_; } // by variable
    const std::string& error() const { return link_.error(); }             // empty: none

  private:
    struct Entry {
        const odt_table_entry* place;
        double waveHertz;
        SentValue* sent; // null when no variable takes it
    };
    struct Odt {
        std::uint8_t number;
        bool stamped;
        std::vector<Entry> entries;
    };
    struct List {
        std::uint8_t number;
        std::uint64_t periodCycles;
        std::vector<Odt> odts;
    };

    void add_list(std::uint8_t number);
    void run(const std::stop_token& stop, const io::UdpEndpoint& master);
    void send_cycle(std::uint64_t cycle);
    void append_packet(const List& list, const Odt& odt, std::uint64_t cycle);
    void flush();

    const bool clockJumps_;
    SimulatedLink link_;
    std::vector<List> lists_;
    std::map<std::string, SentValue> sent_;

    // The sending thread's, until it has ended.
    std::vector<std::uint8_t> packet_;
    std::vector<SimulatedDatagram::Value> values_; // of the packet
    SimulatedDatagram datagram_;                   // being put together
    std::uint16_t ctr_ = 0;
    std::uint32_t clock_; // nanoseconds, of the cycle

    std::jthread thread_;
};

} // namespace task
