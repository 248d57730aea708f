#pragma once
// A host whose clock, variables, parser and registration answers are set by the test, and which
// remembers what it was asked.

#include "halmor_runtime.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace host_double {

// Kinds as in DaqVariable; 3 is real too, but keeps its owner elsewhere.
constexpr std::uint16_t real = 1;
constexpr std::uint16_t integer = 2;
constexpr std::uint16_t other_real = 3;

struct Write {
    std::string variable;
    double value;
    bool asInteger;
    timespec sampleTime;
};

struct Line {
    std::int16_t result;
    std::string text;
};

struct Host {
    timespec clock{1'700'000'000, 0};
    std::int16_t unknownVariable = 5; // answer of find_variable
    bool noAddress = false;           // get_vrbl_adr finds nothing
    bool noDescriptor = false;        // daq_variable_setup fails
    std::function<void()> onWrite;    // runs inside every set_daq_* call
    std::int16_t running = 1;         // answer of link_to_memory
    int nameHolder = -1;              // of _qnx_name_locate
    std::int32_t taskId = 1;          // of get_TLS_tid
    std::int16_t eventStatus = 0;     // of event_attach
    std::int16_t nameId = 1;          // of SrrNameAttach

    // Sections as get_1st_line and get_next_line deliver them: each call after the first takes the
    // next line, and after the last the file ends.
    std::map<std::string, std::deque<Line>> sections;

    // Calls in their order, such as "setprio 0 22".
    std::vector<std::string> calls;

    void define(const std::string& name, std::uint16_t kind, const std::string& owner = "");
    std::uint16_t marker(const std::string& name, std::size_t byte) const;

    // Values so far, or after waiting until there are `count`. Empty when they do not come in 10 s.
    std::vector<Write> writes();
    std::vector<Write> await_writes(std::size_t count);
    void forget_writes();

    // The rest serves the host functions.
    struct Object {
        std::string name;
        std::uint16_t kind;
        std::vector<char> bytes;
    };
    std::deque<Object> objects;
    const std::string* currentSection = nullptr;
    std::mutex mutex; // guards writes_ and calls
    std::condition_variable changed;
    std::vector<Write> writes_;
};

// The host of this process.
Host& host();

} // namespace host_double
