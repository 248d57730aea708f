// The files that the task reads. The first byte says which: measurement table, variables file, spec
// file, capture.

#include "capture_source.h"
#include "file_error.h"
#include "fresh_record.h"
#include "measurement_table.h"
#include "message_counter.h"
#include "spec_file_check.h"
#include "variables_file.h"

#include <thread>

namespace {

void read_capture(const std::string& path) {
    task::CaptureSource source(path, halmor_standin::parse_endpoint("127.0.0.1:5555"), false);
    task::MessageCounter counter;
    source.start(
        [&](const std::uint8_t* data, std::uint64_t length) { counter.take(data, length); });
    while (!source.ended())
        std::this_thread::yield();
    source.stop();
    source.check();
}

using Reader = void (*)(const std::string&);
constexpr Reader readers[] = {
    [](const std::string& path) { task::read_measurement_table(path); },
    [](const std::string& path) { halmor_standin::read_variables_file(path); },
    [](const std::string& path) { task::check_spec_file(path); },
    read_capture,
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const fuzz::MemoryFile file({reinterpret_cast<const char*>(data) + 1, size - 1});
    try {
        readers[(data[0] - '0') & 3](file.path());
    } catch (const halmor_standin::FileError&) {
        // the one way in which a reader may refuse a file
    }
    return 0;
}
