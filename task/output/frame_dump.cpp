#include "frame_dump.h"

#include "api_xcp_daq.h"
#include "io/file_error.h"
#include "xcp/message.h"

#include <fmt/format.h>

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

namespace task {

using io::FileError;

namespace {

constexpr std::size_t ring_size = 16'777'216; // bytes; an eighth of a second at the link's rate

// The file is the library's to open: it has its name from the process.
std::string open_dump() {
    std::string path = fmt::format("/tmp/api_xcp_frame_daq_{}.txt", getpid());
    if (!api_xcp_daq::openFrameDataDump())
        throw FileError(path, std::strerror(errno));
    return path;
}

void append_hexadecimal(std::string& text, std::uint8_t byte) {
    char digits[2];
    text.append(digits, std::to_chars(digits, digits + 2, byte, 16).ptr);
}

void append_record(std::string& text, std::span<const std::uint8_t> packet) {
    constexpr std::size_t values_per_line = 16;
    text.append(fmt::format_int(packet.size()).c_str()).append(" \n");
    for (std::size_t i = 0; i < packet.size(); ++i) {
        append_hexadecimal(text, packet[i]);
        text += (i + 1) % values_per_line == 0 || i + 1 == packet.size() ? '\n' : ',';
    }
}

std::uint64_t count_daq(xcp::MessageWalk messages) {
    std::uint64_t count = 0;
    for (xcp::Message message{}; messages.next(message);)
        count += message.is_daq() ? 1 : 0;
    return count;
}

} // namespace

FrameDump::FrameDump(NoRoom noRoom, std::function<bool()> urgent)
    : path_(open_dump()), writer_(ring_size, noRoom, std::move(urgent), *this) {}

// Whole messages alone, so that one datagram can follow the other.
void FrameDump::take(std::span<const std::uint8_t> payload) {
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);) {
    }
    const auto whole = payload.first(payload.size() - messages.left());
    if (!writer_.take(whole))
        lost_ += count_daq(xcp::MessageWalk(whole));
}

std::size_t FrameDump::add(std::span<const std::uint8_t> bytes) {
    messages_.insert(messages_.end(), bytes.begin(), bytes.end());
    xcp::MessageWalk walk(messages_);
    for (xcp::Message message{}; walk.next(message);)
        if (message.is_daq()) {
            append_record(text_, message.packet);
            ++records_;
        }
    messages_.erase(messages_.begin(), messages_.end() - static_cast<std::ptrdiff_t>(walk.left()));
    return text_.size();
}

void FrameDump::write(bool /*last*/) {
    if (diskError_.empty()) {
        errno = 0;
        appData.frameDumpFile.write(text_.data(), static_cast<std::streamsize>(text_.size()));
        if (!appData.frameDumpFile.flush())
            diskError_ = std::strerror(errno);
    }
    if (!diskError_.empty())
        unwritten_ += records_;
    records_ = 0;
    text_.clear();
}

void FrameDump::close() {
    writer_.close();
    api_xcp_daq::closeFrameDataDump();
    std::string losses;
    if (unwritten_ > 0)
        losses = fmt::format("{} packets were not written: {}", unwritten_, diskError_);
    if (lost_ > 0)
        losses += fmt::format("{}{} packets were not written: {}", losses.empty() ? "" : "; ",
                              lost_, writer_.cause_of_loss());
    if (!losses.empty())
        throw FileError(path_, losses);
}

} // namespace task
