#include "frame_file.h"

#include "api_xcp_daq.h"
#include "io/file_error.h"
#include "xcp/message.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <vector>

namespace task {

using io::FileError;

constexpr const char* fixed_path = "/specs/api_xcp_frame_daq_data.txt";

FrameFile::FrameFile(const std::optional<std::string>& path) : path_(path.value_or(fixed_path)) {
    if (path)
        appData.frameReplayFile.open(*path);
    if (appData.frameReplayFile.fail() || !api_xcp_daq::openReadFrameData())
        throw FileError(path_, std::strerror(errno));
}

void FrameFile::deliver_all(const std::stop_token& stop, DatagramSink& sink) {
    constexpr std::size_t longest_packet = std::numeric_limits<std::uint16_t>::max();
    std::vector<std::uint8_t> frame;
    std::vector<std::uint8_t> payload;
    std::uint16_t ctr = 0;
    for (std::uint64_t record = 1; !stop.stop_requested(); ++record) {
        frame.clear();
        if (api_xcp_daq::readFrameData(&frame, 0) == 0) {
            if (appData.frameReplayFile.eof())
                return;
            if (appData.frameReplayFile.bad())
                throw FileError(path_, "cannot be read to its end");
            throw FileError(path_,
                            fmt::format("record {}: no values after the length line", record));
        }
        if (frame.size() > longest_packet)
            throw FileError(path_, fmt::format("record {}: {} bytes are more than a packet has",
                                               record, frame.size()));
        payload.clear();
        xcp::append_message(payload, ctr++, frame);
        sink.take(payload, Arrival{});
    }
}

} // namespace task
