#pragma once
// Owns a file descriptor.

#include <unistd.h>

#include <utility>

namespace io {

class FileDescriptor {
  public:
    explicit FileDescriptor(int number) : number_(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&&) = delete;
    ~FileDescriptor() {
        if (number_ >= 0)
            close(number_);
    }

    int get() const { return number_; }

  private:
    int number_;
};

} // namespace io
