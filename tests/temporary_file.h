#pragma once
// A file for one test, gone afterwards.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& text = "", const std::string& ending = "")
        : path_(std::filesystem::temp_directory_path() /
                ("xcp_daq_test_" + std::to_string(getpid()) + "_" + std::to_string(made_++) +
                 ending)) {
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
    static inline int made_ = 0;
    const std::string path_;
};

// What `act` writes to standard output and flushes.
template <class Act, class... Argument>
std::string output_of(const Act& act, const Argument&... argument) {
    const TemporaryFile output;
    std::fflush(stdout);
    const int before = dup(STDOUT_FILENO);
    std::FILE* file = std::fopen(output.path().c_str(), "a");
    dup2(fileno(file), STDOUT_FILENO);
    act(argument...);
    const std::string text = output.text();
    dup2(before, STDOUT_FILENO);
    std::fclose(file);
    close(before);
    return text;
}
