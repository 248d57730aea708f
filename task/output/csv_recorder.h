#pragma once
// --record: every value with its sample time, as comma-separated values. A thread of its own writes
// the file, so that the frame path does not wait for a disk while a slave sends.
//
// A header line with the variables' names, then a line for each sample time with the values that
// were written at it and empty cells elsewhere. A value that comes twice at one sample time begins
// a second line of that time.

#include "host/standin/variable_store.h"
#include "io/file_descriptor.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace task {

class CsvRecorder {
  public:
    // When the disk does not follow: values are lost, or the worker waits, as it may for a source
    // that waits too.
    enum class NoRoom { loses, waits };

    // Opens the file and starts the thread; the store's variables stay as they are from here on.
    // Once `urgent` gives true nothing waits any more, not even for a pipe that nobody reads; any
    // thread may ask it. Throws io::FileError.
    CsvRecorder(const std::string& path, NoRoom noRoom, std::function<bool()> urgent);

    // Takes one value; the worker's alone.
    void take(const halmor_standin::Variable& variable, double value, const timespec& sampleTime);

    // Writes what is left and ends the thread; after the worker has ended. Throws io::FileError
    // when anything was not written.
    void close();

  private:
    struct Cell {
        std::size_t column;
        double value;
        timespec time;
    };

    void write_header();
    void write_cells(const std::stop_token& stop);
    void add_to_line(const Cell& cell);
    void end_line();
    void write_text();
    void wait_for_file();

    const std::string path_;
    const NoRoom noRoomDoes_;
    const std::function<bool()> urgent_;
    io::FileDescriptor file_;

    // Ring between the worker, which appends, and the thread, which takes; each moves its own end.
    std::vector<Cell> ring_;
    std::atomic<std::uint64_t> appended_ = 0;
    std::atomic<std::uint64_t> taken_ = 0;

    std::uint64_t lost_ = 0; // values without room; the worker's

    // The thread's.
    std::vector<std::string> line_; // being put together
    timespec lineTime_{};
    bool lineBegun_ = false;
    std::string text_;            // whole lines for the file
    std::uint64_t unwritten_ = 0; // lines that the disk refused; none is tried after the first
    std::string diskError_;

    std::jthread thread_; // uses all of the above
};

} // namespace task
