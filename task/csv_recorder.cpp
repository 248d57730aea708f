#include "csv_recorder.h"

#include "file_error.h"

#include <fmt/format.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <stop_token>

namespace task {

using halmor_standin::FileError;
using halmor_standin::Variable;
using halmor_standin::VariableStore;

namespace {

constexpr std::size_t ring_size = std::size_t{1}
                                  << 20; // values; a second or more at the link's rate
constexpr std::chrono::milliseconds idle_pause{5};

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

CsvRecorder::CsvRecorder(const std::string& path)
    : path_(path), file_(path), ring_(ring_size),
      line_(VariableStore::instance().variables().size()) {
    if (!file_.is_open())
        throw FileError(path, std::strerror(errno));
    write_header();
    thread_ = std::jthread([this](const std::stop_token& stop) { write_cells(stop); });
}

void CsvRecorder::write_header() {
    file_ << "sample_time";
    for (const Variable& variable : VariableStore::instance().variables())
        file_ << ',' << cell_text(variable.name());
    file_ << '\n';
}

void CsvRecorder::take(const Variable& variable, double value, const timespec& sampleTime) {
    const std::uint64_t end = appended_.load(std::memory_order_relaxed);
    if (end - taken_.load(std::memory_order_acquire) == ring_size) {
        ++noRoom_;
        return;
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
            break;
        std::this_thread::sleep_for(idle_pause);
    }
    write_line();
    file_.flush();
}

void CsvRecorder::add_to_line(const Cell& cell) {
    if (lineBegun_ && (!same_time(cell.time, lineTime_) || !line_[cell.column].empty()))
        write_line();
    lineBegun_ = true;
    lineTime_ = cell.time;
    line_[cell.column] = fmt::format("{}", cell.value);
}

void CsvRecorder::write_line() {
    if (!lineBegun_)
        return;
    errno = 0;
    file_ << fmt::format("{}.{:09},{}\n", lineTime_.tv_sec, lineTime_.tv_nsec,
                         fmt::join(line_, ","));
    if (!file_ && ++unwritten_ == 1)
        diskError_ = errno != 0 ? std::strerror(errno) : "write error";
    for (std::string& cell : line_)
        cell.clear();
    lineBegun_ = false;
}

void CsvRecorder::close() {
    thread_.request_stop();
    thread_.join();
    const bool flushed = file_.good();
    file_.close();
    if (unwritten_ > 0)
        throw FileError(path_,
                        fmt::format("{} lines were not written: {}", unwritten_, diskError_));
    if (!flushed || file_.fail())
        throw FileError(path_, "the last lines were not written");
    if (noRoom_ > 0)
        throw FileError(path_,
                        fmt::format("{} values were not written: the disk cannot follow", noRoom_));
}

} // namespace task
