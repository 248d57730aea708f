#include "replay_source.h"

#include "api_xcp_daq.h"
#include "file_error.h"
#include "xcp_message.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <stop_token>
#include <vector>

namespace task {

using halmor_standin::FileError;

constexpr const char* fixed_path = "/specs/api_xcp_frame_daq_data.txt";

ReplaySource::ReplaySource(const std::optional<std::string>& path)
    : path_(path.value_or(fixed_path)) {
    if (path)
        appData.frameReplayFile.open(*path);
    if (appData.frameReplayFile.fail() || !api_xcp_daq::openReadFrameData())
        throw FileError(path_, std::strerror(errno));
}

void ReplaySource::start(DatagramSink sink) {
    thread_ = std::jthread([this, sink = std::move(sink)](const std::stop_token& stop) {
        deliver_all(stop, sink);
        ended_ = true;
    });
}

void ReplaySource::deliver_all(const std::stop_token& stop, const DatagramSink& sink) {
    constexpr std::size_t longest_packet = std::numeric_limits<std::uint16_t>::max();
    std::vector<std::uint8_t> frame;
    std::vector<std::uint8_t> payload;
    std::uint16_t ctr = 0;
    for (std::uint64_t record = 1; !stop.stop_requested(); ++record) {
        frame.clear();
        if (api_xcp_daq::readFrameData(&frame, 0) == 0) {
            if (!appData.frameReplayFile.eof())
                error_ = fmt::format("record {}: no values behind the length line", record);
            return;
        }
        if (frame.size() > longest_packet) {
            error_ =
                fmt::format("record {}: {} bytes are more than a packet has", record, frame.size());
            return;
        }
        payload.clear();
        xcp_daq::append_message(payload, ctr++, frame);
        sink(payload.data(), payload.size());
    }
}

void ReplaySource::stop() {
    if (thread_.joinable()) {
        thread_.request_stop();
        thread_.join();
    }
}

void ReplaySource::check() const {
    if (!error_.empty())
        throw FileError(path_, error_);
}

} // namespace task
