#pragma once
// --record: every value with its sample time, as comma-separated values.
//
// A header line with the variables' names, then a line for each sample time with the values that
// were written at it and empty cells elsewhere. A value that comes twice at one sample time begins
// a second line of that time. A gap is a line with the time at which it begins, in which every cell
// is NaN, so that a curve is broken there.

#include "file_writer.h"
#include "io/file_descriptor.h"
#include "recorder.h"

#include <fmt/format.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace task {

class CsvRecorder final : public Recorder, private FileFormat<RecordedValue> {
  public:
    // Opens the file and starts the thread; the store's variables stay as they are from here on.
    // Once `urgent` gives true nothing waits any more, not even for a pipe that nobody reads; any
    // thread may ask it. Throws io::FileError.
    CsvRecorder(const std::string& path, NoRoom noRoom, std::function<bool()> urgent);

    void take(const halmor_standin::Variable& variable, double value,
              const timespec& sampleTime) override {
        if (!writer_.take({variable.number(), value, sampleTime}))
            ++lost_;
    }
    void gap(const timespec& from, const timespec& to) override;
    void close() override;

  private:
    std::size_t add(std::span<const RecordedValue> values) override;
    void write(bool last) override;
    void begin_line(std::int64_t time);
    void add_gap(std::int64_t from);
    void end_line();
    void wait_for_file();

    const std::string path_;
    io::FileDescriptor file_;
    std::uint64_t lost_ = 0; // values and gaps without room; the worker's

    // The writer's.
    std::vector<std::optional<double>> line_; // being put together
    std::int64_t lineTime_ = 0;
    bool lineBegun_ = false;
    fmt::memory_buffer text_;     // whole lines for the file
    std::uint64_t unwritten_ = 0; // lines that the disk refused; none is tried after the first
    std::string diskError_;

    FileWriter<RecordedValue> writer_; // uses all of the above
};

} // namespace task
