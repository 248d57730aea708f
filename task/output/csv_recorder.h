#pragma once
// --record: every value with its sample time, as comma-separated values.
//
// A header line with the variables' names, then a line for each sample time with the values that
// were written at it and empty cells elsewhere. A value that comes twice at one sample time begins
// a second line of that time.

#include "file_writer.h"
#include "host/standin/variable_store.h"
#include "io/file_descriptor.h"

#include <fmt/format.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace task {

struct RecordedValue {
    std::size_t column;
    double value;
    timespec time;
};

class CsvRecorder : private FileFormat<RecordedValue> {
  public:
    // Opens the file and starts the thread; the store's variables stay as they are from here on.
    // Once `urgent` gives true nothing waits any more, not even for a pipe that nobody reads; any
    // thread may ask it. Throws io::FileError.
    CsvRecorder(const std::string& path, NoRoom noRoom, std::function<bool()> urgent);

    // Takes one value; the worker's alone.
    void take(const halmor_standin::Variable& variable, double value, const timespec& sampleTime) {
        if (!writer_.take({variable.number(), value, sampleTime}))
            ++lost_;
    }

    // Writes what is left and ends the thread; after the worker has ended. Throws io::FileError
    // when anything was not written.
    void close();

  private:
    std::size_t add(std::span<const RecordedValue> values) override;
    void write(bool last) override;
    void begin_line(const timespec& time);
    void end_line();
    void wait_for_file();

    const std::string path_;
    io::FileDescriptor file_;
    std::uint64_t lost_ = 0; // values without room; the worker's

    // The writer's.
    std::vector<std::optional<double>> line_; // being put together
    timespec lineTime_{};
    bool lineBegun_ = false;
    fmt::memory_buffer text_;     // whole lines for the file
    std::uint64_t unwritten_ = 0; // lines that the disk refused; none is tried after the first
    std::string diskError_;

    FileWriter<RecordedValue> writer_; // uses all of the above
};

} // namespace task
