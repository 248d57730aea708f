#pragma once
// Writes DAQ packets into the library's dump file, in the frame data text format that its replay
// reads: docs/formats.md.

#include <cstdint>
#include <span>
#include <string>

namespace task {

class FrameDump {
  public:
    // Opens the file. Throws io::FileError.
    FrameDump();
    ~FrameDump(); // closes the file, without a word about errors

    const std::string& path() const { return path_; }

    // Writes the DAQ packets of a datagram; on one thread.
    void take(std::span<const std::uint8_t> payload);

    // Throws io::FileError when not everything could be written.
    void close();

  private:
    std::string path_;
    std::string text_; // the records of one datagram
};

} // namespace task
