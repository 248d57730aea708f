#include "host_double.h"

#include "transport_udp.h"

#include <chrono>
#include <cstdarg>
#include <cstring>
#include <sstream>

namespace host_double {

Host& host() {
    static Host theHost;
    return theHost;
}

void Host::define(const std::string& name, std::uint16_t kind, const std::string& owner) {
    constexpr std::size_t ownerAt[] = {0, 224, 216, 384};
    Object& object = objects[name];
    object = {{}, name, kind};
    owner.copy(object.bytes + ownerAt[kind], owner.size());
}

std::uint16_t Host::marker(const std::string& name, std::size_t byte) const {
    std::uint16_t word;
    std::memcpy(&word, objects.at(name).bytes + byte, sizeof word);
    return word;
}

std::vector<Write> Host::take_writes(std::size_t count) {
    std::unique_lock lock(mutex);
    changed.wait_for(lock, std::chrono::seconds(10), [&] { return written.size() >= count; });
    return written.size() >= count ? std::exchange(written, {}) : std::vector<Write>{};
}

static void record_write(const DaqVariable* variable, double value, bool asInteger,
                         const timespec* time) {
    const auto* object = static_cast<const Object*>(variable->object);
    const std::lock_guard lock(host().mutex);
    host().written.push_back({object->name, value, asInteger, {time->tv_sec, time->tv_nsec}});
    host().changed.notify_all();
}

template <class... Argument>
static int record_call(const Argument&... argument) {
    std::ostringstream call;
    const char* separator = "";
    ((call << std::exchange(separator, " ") << argument), ...);
    const std::lock_guard lock(host().mutex);
    host().calls += call.str() + "\n";
    return -1;
}

} // namespace host_double

using host_double::host;
using host_double::Object;
using host_double::record_call;

std::int16_t find_variable(const char* name, VariableId* id) {
    const auto found = host().objects.find(name);
    if (found == host().objects.end())
        return host_double::unknown_variable;
    *id = {{77, reinterpret_cast<std::uint64_t>(&found->second)}};
    return 0;
}

void* get_vrbl_adr(VariableId id) {
    return host().noAddress || id.word[0] != 77 ? nullptr : reinterpret_cast<void*>(id.word[1]);
}

void daq_variable_setup(DaqVariable* descriptor, VariableId*, void* address) {
    if (host().noDescriptor)
        return;
    descriptor->kind = static_cast<const Object*>(address)->kind;
    descriptor->object = address;
}

void set_daq_integer(DaqVariable* variable, std::int32_t value, const timespec* sampleTime) {
    host_double::record_write(variable, value, true, sampleTime);
}

void set_daq_real(DaqVariable* variable, double value, const timespec* sampleTime) {
    host_double::record_write(variable, value, false, sampleTime);
}

int setprio(int who, int priority) {
    return record_call("setprio", who, priority);
}

int SrrClockGettime(int clock, timespec* now) {
    *now = clock == 5 ? host().clock : timespec{};
    return 0;
}

Transport_udp& Transport_udp::instance() {
    static Transport_udp transport;
    record_call("Transport_udp::instance");
    return transport;
}

std::int16_t link_to_memory(int which, std::int32_t*) {
    record_call("link_to_memory", which);
    return host().answers.running;
}

int _setsid() {
    return record_call("_setsid");
}

int join_layer(int layer) {
    return record_call("join_layer", layer);
}

std::int32_t get_TLS_tid() {
    record_call("get_TLS_tid");
    return 4711;
}

int _qnx_name_locate(int node, const char* name, int size, int* copies) {
    record_call("_qnx_name_locate", node, name, size, copies == nullptr ? "null" : "copies");
    return host().answers.nameHolder;
}

int copyn(const char* sourcePath, int sourceLine, char*, const char* from, int size) {
    return record_call("copyn", sourcePath, sourceLine, from, size);
}

std::int16_t event_attach(const char* name, int size, std::int32_t* event) {
    record_call("event_attach", name, size);
    *event = 17;
    return host().answers.eventStatus;
}

std::int16_t SrrNameAttach(int node, const char* name) {
    record_call("SrrNameAttach", node, name);
    return host().answers.nameId;
}

int log_error(const char* sourcePath, int sourceLine, int code1, int code2, const char* format,
              ...) {
    char text[200];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return record_call("log_error", sourcePath, sourceLine, code1, code2, text);
}
