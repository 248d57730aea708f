// A file of frames through readFrameData, until it is at its end.

#include "fresh_record.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryFile file({reinterpret_cast<const char*>(data), size});
    appData.frameReplayFile = std::ifstream(file.path());
    std::vector<std::uint8_t> frame;
    while (!appData.frameReplayFile.eof()) {
        const std::size_t before = frame.size();
        const std::int64_t count = api_xcp_daq::readFrameData(&frame, 0);
        if (count != static_cast<std::int64_t>(frame.size() - before))
            __builtin_trap();
    }
    return 0;
}
