#pragma once
// Writes DAQ packets into the library's dump file, in the frame data text format that its replay
// reads: docs/formats.md.

#include "file_writer.h"

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace task {

class FrameDump : private FileFormat<std::uint8_t> {
  public:
    // Opens the file and starts the thread that writes it. Once `urgent` gives true nothing waits
    // any more; any thread may ask it. Throws io::FileError.
    FrameDump(NoRoom noRoom, std::function<bool()> urgent);

    const std::string& path() const { return path_; }

    // Takes the DAQ packets of a datagram; one thread's alone.
    void take(std::span<const std::uint8_t> payload);

    // Writes what is left and closes the file; after the last take(). Throws io::FileError when
    // anything was not written.
    void close();

  private:
    std::size_t add(std::span<const std::uint8_t> bytes) override;
    void write(bool last) override;

    const std::string path_;
    std::uint64_t lost_ = 0; // packets without room; the giver's

    // The writer's.
    std::vector<std::uint8_t> messages_; // as they came, the last one perhaps in part
    std::string text_;                   // whole records for the file
    std::uint64_t records_ = 0;          // in the text
    std::uint64_t unwritten_ = 0;        // records that the disk refused; none is tried afterwards
    std::string diskError_;

    FileWriter<std::uint8_t> writer_; // uses all of the above
};

} // namespace task
