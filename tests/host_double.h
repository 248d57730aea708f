#pragma once
// A host whose clock, variables and registration answers are set by the test, and which remembers
// what it was asked. Its spec-file parser is the stand-in's.

#include "halmor_runtime.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace host_double {

// Kinds as in DaqVariable; 3 is real too, but keeps its owner elsewhere.
constexpr std::uint16_t real = 1, integer = 2, other_real = 3;

using Time = std::pair<std::time_t, long>; // a timespec that can be compared

struct Object {
    char bytes[512]; // what the library looks at
    std::string name;
    std::uint16_t kind;
};

struct Write {
    std::string variable;
    double value;
    bool asInteger;
    Time sampleTime;
};

struct Answers {
    std::int16_t running = 1;     // of link_to_memory
    int nameHolder = -1;          // of _qnx_name_locate
    std::int16_t eventStatus = 0; // of event_attach
    std::int16_t nameId = 1;      // of SrrNameAttach
};

struct Host {
    timespec clock{1'700'000'000, 0};
    Answers answers;
    bool noAddress = false;    // get_vrbl_adr finds nothing
    bool noDescriptor = false; // daq_variable_setup fails

    std::mutex mutex; // guards the rest while a worker runs
    std::condition_variable written;
    std::map<std::string, Object> objects;
    std::vector<Write> writes;
    std::string calls; // a line each, such as "setprio 0 22"

    Object& define(const std::string& name, std::uint16_t kind, const std::string& owner = "");

    // The writes since the last time, once there are `count`; none when they do not come in 10 s.
    std::vector<Write> take_writes(std::size_t count = 0);
};

Host& host(); // of this process

} // namespace host_double
