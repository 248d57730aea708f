#pragma once
// A file for one test, empty at first and gone afterwards.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include <unistd.h>

class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& text = "") {
        std::string pattern = std::filesystem::temp_directory_path() / "xcp_daq_test_XXXXXX";
        const int file = mkstemp(pattern.data());
        if (file < 0)
            throw std::runtime_error("no temporary file");
        close(file);
        path_ = pattern;
        std::ofstream(path_) << text;
    }
    ~TemporaryFile() { std::filesystem::remove(path_); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return path_; }

    std::string text() const {
        std::ifstream file(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    std::string path_;
};
