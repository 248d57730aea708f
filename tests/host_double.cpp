#include "host_double.h"

#include "transport_udp.h"

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstring>

namespace host_double {

Host& host() {
    static Host theHost;
    return theHost;
}

void Host::define(const std::string& name, std::uint16_t kind, const std::string& owner) {
    constexpr std::size_t ownerAt[] = {0, 224, 216, 384};
    objects.push_back({name, kind, std::vector<char>(512)});
    owner.copy(objects.back().bytes.data() + ownerAt[kind], owner.size());
}

std::uint16_t Host::marker(const std::string& name, std::size_t byte) const {
    const auto object = std::find_if(objects.begin(), objects.end(),
                                     [&](const Object& o) { return o.name == name; });
    std::uint16_t word;
    std::memcpy(&word, object->bytes.data() + byte, sizeof word);
    return word;
}

std::vector<Write> Host::writes() {
    const std::lock_guard lock(mutex);
    return writes_;
}

std::vector<Write> Host::await_writes(std::size_t count) {
    std::unique_lock lock(mutex);
    const bool came =
        changed.wait_for(lock, std::chrono::seconds(10), [&] { return writes_.size() >= count; });
    return came ? writes_ : std::vector<Write>{};
}

void Host::forget_writes() {
    const std::lock_guard lock(mutex);
    writes_.clear();
}

static void record_call(std::string call) {
    const std::lock_guard lock(host().mutex);
    host().calls.push_back(std::move(call));
}

static void record_write(const DaqVariable* variable, double value, bool asInteger,
                         const timespec* sampleTime) {
    if (host().onWrite)
        host().onWrite();
    const auto* object = static_cast<const Host::Object*>(
        *reinterpret_cast<void* const*>(variable->runtimePrivate3));
    const std::lock_guard lock(host().mutex);
    host().writes_.push_back({object->name, value, asInteger, *sampleTime});
    host().changed.notify_all();
}

static std::int16_t deliver(const Line& line, char* buffer) {
    if (line.result >= 0)
        std::strcpy(buffer, line.text.c_str());
    return line.result;
}

} // namespace host_double

using host_double::host;
using host_double::Host;

std::int16_t find_variable(const char* name, VariableId* id) {
    for (std::size_t i = 0; i < host().objects.size(); ++i)
        if (host().objects[i].name == name) {
            *id = {{i, 77}};
            return 0;
        }
    return host().unknownVariable;
}

void* get_vrbl_adr(VariableId id) {
    return host().noAddress || id.word[1] != 77 ? nullptr : &host().objects[id.word[0]];
}

void daq_variable_setup(DaqVariable* descriptor, VariableId*, void* address) {
    if (host().noDescriptor)
        return;
    auto* object = static_cast<Host::Object*>(address);
    descriptor->kind = object->kind;
    descriptor->object = object->bytes.data();
    std::memcpy(descriptor->runtimePrivate3, &address, sizeof address);
}

void set_daq_integer(DaqVariable* variable, std::int32_t value, const timespec* sampleTime) {
    host_double::record_write(variable, value, true, sampleTime);
}

void set_daq_real(DaqVariable* variable, double value, const timespec* sampleTime) {
    host_double::record_write(variable, value, false, sampleTime);
}

std::int16_t get_1st_line(std::FILE*, char* line, const char* key) {
    const auto section = host().sections.find(key);
    if (section == host().sections.end())
        return -1;
    host().currentSection = &section->first;
    return get_next_line(nullptr, line);
}

std::int16_t get_next_line(std::FILE*, char* line) {
    auto& lines = host().sections[*host().currentSection];
    if (lines.empty())
        return -1;
    const std::int16_t result = host_double::deliver(lines.front(), line);
    lines.pop_front();
    return result;
}

std::uint64_t parse_line(char* line, int maxTokens, int slotSize, int mode, char* tokens,
                         std::uint64_t* unused) {
    return parse_line_delim(line, maxTokens, slotSize, mode, tokens, unused, " \t\n");
}

std::uint64_t parse_line_delim(char* line, int maxTokens, int slotSize, int, char* tokens,
                               std::uint64_t*, const char* delimiters) {
    std::string copy = line;
    char* rest = nullptr;
    std::uint64_t found = 0;
    for (char* token = strtok_r(copy.data(), delimiters, &rest);
         token != nullptr && found < static_cast<std::uint64_t>(maxTokens);
         token = strtok_r(nullptr, delimiters, &rest))
        std::strcpy(tokens + found++ * static_cast<std::uint64_t>(slotSize), token);
    return found;
}

int setprio(int who, int priority) {
    host_double::record_call("setprio " + std::to_string(who) + " " + std::to_string(priority));
    return 0;
}

int SrrClockGettime(int clock, timespec* now) {
    *now = clock == 5 ? host().clock : timespec{};
    return 0;
}

Transport_udp& Transport_udp::instance() {
    static Transport_udp transport;
    return transport;
}

using host_double::record_call;

std::int16_t link_to_memory(int which, std::int32_t*) {
    record_call("link_to_memory " + std::to_string(which));
    return host().running;
}

int _setsid() {
    record_call("_setsid");
    return -1;
}

int join_layer(int layer) {
    record_call("join_layer " + std::to_string(layer));
    return -1;
}

std::int32_t get_TLS_tid() {
    record_call("get_TLS_tid");
    return host().taskId;
}

int _qnx_name_locate(int node, const char* name, int size, int* copies) {
    record_call("_qnx_name_locate " + std::to_string(node) + " " + name + " " +
                std::to_string(size) + (copies == nullptr ? "" : " copies"));
    return host().nameHolder;
}

int copyn(const char* sourcePath, int sourceLine, char*, const char* from, int size) {
    record_call(std::string("copyn ") + sourcePath + " " + std::to_string(sourceLine) + " " + from +
                " " + std::to_string(size));
    return -1;
}

std::int16_t event_attach(const char* name, int size, std::int32_t*) {
    record_call(std::string("event_attach ") + name + " " + std::to_string(size));
    return host().eventStatus;
}

std::int16_t SrrNameAttach(int node, const char* name) {
    record_call("SrrNameAttach " + std::to_string(node) + " " + name);
    return host().nameId;
}

int log_error(const char* sourcePath, int sourceLine, int code1, int code2, const char* format,
              ...) {
    char text[200];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    record_call(std::string("log_error ") + sourcePath + " " + std::to_string(sourceLine) + " " +
                std::to_string(code1) + " " + std::to_string(code2) + " " + text);
    return -1;
}
