// The files that users write or record. The first byte says which: measurement table, variables
// file, spec file, capture, frames.

#include "fresh_record.h"
#include "host/standin/variables_file.h"
#include "io/file_error.h"
#include "memory_file.h"
#include "task/configuration/spec_file.h"
#include "task/configuration/table_file.h"
#include "task/output/message_counter.h"
#include "task/sources/capture_file.h"

namespace {

// Through both readers: what the task finds no fault in, the library has to read alike.
void read_spec(const std::string& path) {
    fuzz::refresh_record();
    appData.logEnabled = true;
    if (!appData.logFile.is_open())
        appData.logFile.open("/dev/null");
    api_xcp_daq::readSpecs(path.c_str());
    api_xcp_daq::dumpInfo();
    for (const xcpDAQList& list : appData.daqList)
        if (list.halVarList.size() != list.measurementAttrs.nameList.size())
            __builtin_trap();
    const task::SpecFile spec = task::read_spec_file(path);
    if (!spec.faults.empty() || !spec.namesServer)
        return;
    for (const task::ListSection& section : spec.lists) {
        const auto& names =
            appData.daqList[static_cast<std::size_t>(section.daqList)].measurementAttrs.nameList;
        if (names.size() != section.measurements.size())
            __builtin_trap();
        for (std::size_t i = 0; i < names.size(); ++i)
            if (names[i] != section.measurements[i].variable)
                __builtin_trap();
    }
}

void read_capture(const std::string& path) {
    task::CaptureFile capture(path, io::parse_endpoint("127.0.0.1:5555"), false);
    struct : task::DatagramSink {
        void take(std::span<const std::uint8_t> payload, task::Arrival) noexcept override {
            counter.take(payload);
        }
        void begin_session(std::string_view) noexcept override {}
        task::MessageCounter counter;
    } sink;
    capture.deliver_all({}, sink);
}

void read_frames(const std::string& path) {
    appData.frameReplayFile = std::ifstream(path);
    std::vector<std::uint8_t> frame;
    while (!appData.frameReplayFile.eof()) {
        const std::size_t before = frame.size();
        const std::int64_t count = api_xcp_daq::readFrameData(&frame, 0);
        if (count != static_cast<std::int64_t>(frame.size() - before))
            __builtin_trap();
    }
}

using Reader = void (*)(const std::string&);
constexpr Reader readers[] = {
    [](const std::string& path) { task::read_measurement_table(path); },
    [](const std::string& path) { halmor_standin::read_variables_file(path); },
    read_spec,
    read_capture,
    read_frames,
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const fuzz::MemoryFile file({reinterpret_cast<const char*>(data) + 1, size - 1});
    try {
        readers[static_cast<std::uint8_t>(data[0] - '0') % std::size(readers)](file.path());
    } catch (const io::FileError&) {
        // the one way in which a reader may refuse a file
    }
    return 0;
}
