#include "csv_recorder.h"

#include "io/file_error.h"

#include <fmt/compile.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>

namespace task {

using halmor_standin::Variable;
using halmor_standin::VariableStore;
using io::FileError;

namespace {

constexpr std::size_t ring_size = 1'048'576; // values; a second or more at the link's rate
constexpr int longest_poll = 100;            // milliseconds until a wait for the file looks up

// Names with a comma or a quotation mark stand in quotation marks.
std::string cell_text(const std::string& name) {
    if (name.find_first_of(",\"") == std::string::npos)
        return name;
    std::string text = "\"";
    for (const char character : name)
        text += character == '"' ? std::string("\"\"") : std::string(1, character);
    return text + "\"";
}

// A pipe waits for its reader.
io::FileDescriptor open_recording(const std::string& path, const std::function<bool()>& urgent) {
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK;
    for (;;) {
        io::FileDescriptor file(open(path.c_str(), flags, 0666));
        if (file.get() >= 0)
            return file;
        if (errno != ENXIO || urgent())
            throw FileError(path, errno == ENXIO ? "nobody reads the pipe" : std::strerror(errno));
        std::this_thread::sleep_for(std::chrono::milliseconds(longest_poll));
    }
}

fmt::memory_buffer header_line() {
    fmt::memory_buffer text;
    text.append(std::string_view("sample_time"));
    for (const Variable& variable : VariableStore::instance().variables())
        fmt::format_to(std::back_inserter(text), ",{}", cell_text(variable.name()));
    text.push_back('\n');
    return text;
}

// The shortest text that reads back as the value. Most values are whole numbers, which are had for
// less; those beyond 15 digits have exponents.
void append_number(fmt::memory_buffer& text, double value) {
    constexpr double longest_whole = 1e15;
    const auto end = std::back_inserter(text);
    if (std::abs(value) < longest_whole && value == std::trunc(value) &&
        !(value == 0 && std::signbit(value)))
        fmt::format_to(end, FMT_COMPILE("{}"), static_cast<std::int64_t>(value));
    else
        fmt::format_to(end, FMT_COMPILE("{}"), value);
}

} // namespace

CsvRecorder::CsvRecorder(const std::string& path, NoRoom noRoom, std::function<bool()> urgent)
    : path_(path), file_(open_recording(path, urgent)),
      line_(VariableStore::instance().variables().size()), text_(header_line()),
      writer_(ring_size, noRoom, std::move(urgent), *this) {}

void CsvRecorder::gap(const timespec& from, const timespec& to) {
    if (!writer_.take(gap_items(from, to)))
        ++lost_;
}

std::size_t CsvRecorder::add(std::span<const RecordedValue> values) {
    for (const RecordedValue& each : values) {
        if (each.column >= gap_begin) {
            if (each.column == gap_begin)
                add_gap(each.time);
            continue;
        }
        if (!lineBegun_ || each.time != lineTime_ || line_[each.column])
            begin_line(each.time);
        line_[each.column] = each.value;
    }
    return text_.size();
}

void CsvRecorder::add_gap(std::int64_t from) {
    begin_line(from);
    std::fill(line_.begin(), line_.end(), std::numeric_limits<double>::quiet_NaN());
    end_line();
}

void CsvRecorder::begin_line(std::int64_t time) {
    end_line();
    lineBegun_ = true;
    lineTime_ = time;
}

void CsvRecorder::end_line() {
    if (!lineBegun_)
        return;
    fmt::format_to(std::back_inserter(text_), FMT_COMPILE("{}.{:09}"), lineTime_ / second_ns,
                   lineTime_ % second_ns);
    for (std::optional<double>& cell : line_) {
        text_.push_back(',');
        if (cell)
            append_number(text_, *cell);
        cell.reset();
    }
    text_.push_back('\n');
    lineBegun_ = false;
}

void CsvRecorder::write(bool last) {
    if (last)
        end_line();
    std::string_view rest(text_.data(), text_.size());
    while (!rest.empty() && diskError_.empty()) {
        const ssize_t written = ::write(file_.get(), rest.data(), rest.size());
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
        if (writer_.urgent()) {
            diskError_ = writer_.not_waited_for;
            return;
        }
}

void CsvRecorder::close() {
    writer_.close();
    std::string losses;
    if (unwritten_ > 0)
        losses = fmt::format("{} lines were not written: {}", unwritten_, diskError_);
    if (lost_ > 0)
        losses += fmt::format("{}{} values were not written: {}", losses.empty() ? "" : "; ", lost_,
                              writer_.cause_of_loss());
    if (!losses.empty())
        throw FileError(path_, losses);
}

} // namespace task
