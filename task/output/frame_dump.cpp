#include "frame_dump.h"

#include "api_xcp_daq.h"
#include "io/file_error.h"
#include "xcp/message.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace task {

using io::FileError;

namespace {

void append_record(std::string& text, std::span<const std::uint8_t> packet) {
    constexpr std::size_t values_per_line = 16;
    fmt::format_to(std::back_inserter(text), "{} \n", packet.size());
    for (; !packet.empty(); packet = packet.subspan(std::min(values_per_line, packet.size()))) {
        const auto line = packet.first(std::min(values_per_line, packet.size()));
        fmt::format_to(std::back_inserter(text), "{:x}\n", fmt::join(line, ","));
    }
}

} // namespace

FrameDump::FrameDump() : path_(fmt::format("/tmp/api_xcp_frame_daq_{}.txt", getpid())) {
    if (!api_xcp_daq::openFrameDataDump())
        throw FileError(path_, std::strerror(errno));
}

FrameDump::~FrameDump() {
    api_xcp_daq::closeFrameDataDump();
}

void FrameDump::take(std::span<const std::uint8_t> payload) {
    text_.clear();
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);)
        if (message.is_daq())
            append_record(text_, message.packet);
    appData.frameDumpFile.write(text_.data(), static_cast<std::streamsize>(text_.size()));
}

void FrameDump::close() {
    api_xcp_daq::closeFrameDataDump();
    if (appData.frameDumpFile.fail())
        throw FileError(path_, "not every packet could be written");
}

} // namespace task
