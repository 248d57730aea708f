#include "host_double.h"

#include "transport_udp.h"

#include <chrono>
#include <cstdarg>
#include <functional>
#include <sstream>

namespace host_double {

Host& host() {
    static Host theHost;
    return theHost;
}

Object& Host::define(const std::string& name, std::uint16_t kind, const std::string& owner) {
    constexpr std::size_t ownerAt[] = {0, 224, 216, 384};
    Object& object = objects[name] = {{}, name, kind};
    owner.copy(object.bytes + ownerAt[kind], owner.size());
    return object;
}

std::vector<Write> Host::take_writes(std::size_t count) {
    std::unique_lock lock(mutex);
    const bool came =
        written.wait_for(lock, std::chrono::seconds(10), [&] { return writes.size() >= count; });
    return came ? std::exchange(writes, {}) : std::vector<Write>{};
}

static void record_write(const DaqVariable* variable, double value, bool asInteger,
                         const timespec* time) {
    const auto* object = static_cast<const Object*>(variable->object);
    const std::lock_guard lock(host().mutex);
    host().writes.push_back({object->name, value, asInteger, {time->tv_sec, time->tv_nsec}});
    host().written.notify_all();
}

template <class Result, class... Argument>
static Result record(Result result, const char* function, const Argument&... argument) {
    std::ostringstream call;
    call << function;
    ((call << ' ' << argument), ...);
    const std::lock_guard lock(host().mutex);
    host().calls += call.str() + "\n";
    return result;
}

} // namespace host_double

using namespace host_double;

std::int16_t find_variable(const char* name, VariableId* id) {
    const auto found = host().objects.find(name);
    if (found == host().objects.end())
        return -300;
    *id = {{77, reinterpret_cast<std::uint64_t>(&found->second)}};
    return 0;
}
void* get_vrbl_adr(VariableId id) {
    return host().noAddress || id.word[0] != 77 ? nullptr : reinterpret_cast<void*>(id.word[1]);
}
void daq_variable_setup(DaqVariable* descriptor, VariableId*, void* address) {
    descriptor->kind = static_cast<const Object*>(address)->kind;
    descriptor->object = host().noDescriptor ? nullptr : address;
}
void set_daq_integer(DaqVariable* variable, std::int32_t value, const timespec* sampleTime) {
    record_write(variable, value, true, sampleTime);
}
void set_daq_real(DaqVariable* variable, double value, const timespec* sampleTime) {
    record_write(variable, value, false, sampleTime);
}
int SrrClockGettime(int clock, timespec* now) {
    *now = clock == 5 ? host().clock : timespec{};
    return 0;
}
Transport_udp& Transport_udp::instance() {
    static Transport_udp transport;
    return record(std::ref(transport), "Transport_udp::instance");
}
std::int16_t link_to_memory(int which, std::int32_t*) {
    return record(host().answers.running, "link_to_memory", which);
}
int _setsid() {
    return record(-1, "_setsid");
}
int join_layer(int layer) {
    return record(-1, "join_layer", layer);
}
std::int32_t get_TLS_tid() {
    return record(4711, "get_TLS_tid");
}
int _qnx_name_locate(int node, const char* name, int size, int* copies) {
    return record(host().answers.nameHolder, "_qnx_name_locate", node, name, size,
                  copies == nullptr);
}
int copyn(const char* sourcePath, int sourceLine, char*, const char* from, int size) {
    return record(-1, "copyn", sourcePath, sourceLine, from, size);
}
int setprio(int who, int priority) {
    return record(-1, "setprio", who, priority);
}
std::int16_t event_attach(const char* name, int size, std::int32_t* event) {
    *event = 17;
    return record(host().answers.eventStatus, "event_attach", name, size);
}
std::int16_t SrrNameAttach(int node, const char* name) {
    return record(host().answers.nameId, "SrrNameAttach", node, name);
}
int log_error(const char* sourcePath, int sourceLine, int code1, int code2, const char* format,
              ...) {
    char text[200];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return record(-1, "log_error", sourcePath, sourceLine, code1, code2, text);
}
