#include "task_services.h"

#include "halmor_runtime.h"
#include "task_names.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr int realtime_clock = 5;
constexpr std::int32_t only_event = 1;

std::atomic<int> priority = 0;

bool is_stopped() {
    const char* state = std::getenv("HALMOR_STANDIN");
    return state != nullptr && std::strcmp(state, "stopped") == 0;
}

std::string formatted(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<std::size_t>(std::max(length, 0)), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

} // namespace

int halmor_standin::recorded_priority() {
    return priority;
}

int setprio(int /*who*/, int newPriority) {
    return priority.exchange(newPriority);
}

int SrrClockGettime(int clock, timespec* now) {
    return clock == realtime_clock ? clock_gettime(CLOCK_REALTIME, now) : -1;
}

std::int16_t link_to_memory(int /*which*/, std::int32_t* received) {
    *received = 0;
    return is_stopped() ? 0 : 1;
}

// Stays in the session of its terminal, which could not interrupt it otherwise.
int _setsid() {
    return getsid(0);
}

int join_layer(int /*layer*/) {
    return 0;
}

std::int32_t get_TLS_tid() {
    return static_cast<std::int32_t>(syscall(SYS_gettid));
}

int _qnx_name_locate(int /*node*/, const char* name, int /*size*/, int* /*copies*/) {
    return halmor_standin::task_of_name(name);
}

std::int16_t SrrNameAttach(int /*node*/, const char* name) {
    return halmor_standin::take_name(name);
}

// The text is always terminated, at the cost of its last character.
int copyn(const char* /*sourcePath*/, int /*sourceLine*/, char* to, const char* from, int size) {
    if (size <= 0)
        return 0;
    const std::size_t length = strnlen(from, static_cast<std::size_t>(size) - 1);
    std::memcpy(to, from, length);
    to[length] = '\0';
    return static_cast<int>(length);
}

std::int16_t event_attach(const char* /*name*/, int /*size*/, std::int32_t* event) {
    if (event == nullptr)
        return EINVAL;
    *event = only_event;
    return 0;
}

int log_error(const char* sourcePath, int sourceLine, int code1, int code2, const char* format,
              ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    return std::fprintf(stderr, "error log: %s:%d: %d %d: %s\n", sourcePath, sourceLine, code1,
                        code2, text.c_str());
}
