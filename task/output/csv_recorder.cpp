#include "csv_recorder.h"

#include "io/file_error.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stop_token>
#include <string_view>

namespace task {

using halmor_standin::Variable;
using halmor_standin::VariableStore;
using io::FileError;

namespace {

constexpr std::size_t ring_size = 1'048'576; // values; a second or more at the link's rate
constexpr std::chrono::milliseconds idle_pause{5};
constexpr int longest_poll = 100; // milliseconds until a wait for the file looks up
constexpr const char* not_waited_for = "the run was told not to wait for the file";
constexpr std::size_t text_size = 65'536; // bytes; what is written at once

bool same_time(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

// Names with a comma or a quotation mark stand in quotation marks.
std::string cell_text(const std::string& name) {
    if (name.find_first_of(",\"") == std::string::npos)
        return name;
    std::string text = "\"";
    for (const char character : name)
        text += character == '"' ? std::string("\"\"") : std::string(1, character);
    return text + "\"";
}

} // namespace

CsvRecorder::CsvRecorder(const std::string& path, NoRoom noRoom, std::function<bool()> urgent)
    : path_(path), noRoomDoes_(noRoom), urgent_(std::move(urgent)),
      file_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)), ring_(ring_size),
      line_(VariableStore::instance().variables().size()) {
    if (file_.get() < 0)
        throw FileError(path, std::strerror(errno));
    fcntl(file_.get(), F_SETFL, O_NONBLOCK); // only now: a pipe may wait for its reader
    write_header();
    thread_ = std::jthread([this](const std::stop_token& stop) { write_cells(stop); });
}

void CsvRecorder::write_header() {
    text_ = "sample_time";
    for (const Variable& variable : VariableStore::instance().variables())
        text_.append(",").append(cell_text(variable.name()));
    text_ += '\n';
}

void CsvRecorder::take(const Variable& variable, double value, const timespec& sampleTime) {
    const std::uint64_t end = appended_.load(std::memory_order_relaxed);
    while (end - taken_.load(std::memory_order_acquire) == ring_size) {
        if (noRoomDoes_ == NoRoom::loses || urgent_()) {
            ++lost_;
            return;
        }
        std::this_thread::sleep_for(idle_pause);
    }
    ring_[end % ring_size] = {variable.number(), value, sampleTime};
    appended_.store(end + 1, std::memory_order_release);
}

void CsvRecorder::write_cells(const std::stop_token& stop) {
    for (;;) {
        const bool last = stop.stop_requested(); // looked at first: what came before it is seen
        const std::uint64_t end = appended_.load(std::memory_order_acquire);
        for (std::uint64_t next = taken_.load(std::memory_order_relaxed); next < end; ++next) {
            add_to_line(ring_[next % ring_size]);
            taken_.store(next + 1, std::memory_order_release);
        }
        if (last)
            end_line();
        write_text();
        if (last)
            return;
        std::this_thread::sleep_for(idle_pause);
    }
}

void CsvRecorder::add_to_line(const Cell& cell) {
    if (lineBegun_ && (!same_time(cell.time, lineTime_) || !line_[cell.column].empty()))
        end_line();
    lineBegun_ = true;
    lineTime_ = cell.time;
    line_[cell.column] = fmt::format("{}", cell.value);
}

void CsvRecorder::end_line() {
    if (!lineBegun_)
        return;
    text_ +=
        fmt::format("{}.{:09},{}\n", lineTime_.tv_sec, lineTime_.tv_nsec, fmt::join(line_, ","));
    if (text_.size() >= text_size)
        write_text();
    for (std::string& cell : line_)
        cell.clear();
    lineBegun_ = false;
}

void CsvRecorder::write_text() {
    std::string_view rest = text_;
    while (!rest.empty() && diskError_.empty()) {
        const ssize_t written = write(file_.get(), rest.data(), rest.size());
        if (written >= 0)
            rest.remove_prefix(static_cast<std::size_t>(written));
        else if (errno == EAGAIN)
            wait_for_file();
        else if (errno != EINTR)
            diskError_ = std::strerror(errno);
    }
    unwritten_ += static_cast<std::uint64_t>(std::count(rest.begin(), rest.end(), '\n'));
    text_.clear();
}

// Until the file takes more, or nobody waits for it any more.
void CsvRecorder::wait_for_file() {
    pollfd file{file_.get(), POLLOUT, 0};
    while (poll(&file, 1, longest_poll) == 0)
        if (urgent_()) {
            diskError_ = not_waited_for;
            return;
        }
}

void CsvRecorder::close() {
    thread_.request_stop();
    thread_.join();
    std::string losses;
    if (unwritten_ > 0)
        losses = fmt::format("{} lines were not written: {}", unwritten_, diskError_);
    if (lost_ > 0)
        losses += fmt::format("{}{} values were not written: {}", losses.empty() ? "" : "; ", lost_,
                              urgent_() ? not_waited_for : "the disk cannot follow");
    if (!losses.empty())
        throw FileError(path_, losses);
}

} // namespace task
