#pragma once
// Datagrams out of a file, on a thread of its own.

#include "datagram_source.h"

#include <atomic>
#include <exception>
#include <memory>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace task {

// A file that holds datagrams, in whatever format.
class DatagramFile {
  public:
    virtual ~DatagramFile() = default;

    // What and where it is, in a few words.
    virtual std::string description() const = 0;

    // Hands every datagram to the sink, until the end or until told to stop. Throws io::FileError
    // for what is wrong with the file.
    virtual void deliver_all(const std::stop_token& stop, DatagramSink& sink) = 0;

    // So far: datagrams that are not the slave's. Any thread.
    virtual std::uint64_t foreign() const { return 0; }

    // So far: packets by which the slave told that it lost samples. Any thread.
    virtual std::uint64_t overloads() const { return 0; }

    // So far: samples whose short timestamp does not tell their time. Any thread.
    virtual std::uint64_t untold() const { return 0; }

    // As of a source.
    virtual std::vector<std::string> doubts() const { return {}; }
    virtual std::vector<SampleEnd> sample_ends() const { return {}; }
};

class FileSource : public DatagramSource {
  public:
    explicit FileSource(std::unique_ptr<DatagramFile> file) : file_(std::move(file)) {}

    void start(DatagramSink& sink) override;
    std::string description() const override { return file_->description(); }
    bool can_wait() const override { return true; }
    bool ended() const override { return ended_; }
    void stop() override;
    void check() const override;
    Losses losses() const override {
        return {0, file_->foreign(), file_->overloads(), file_->untold()};
    }
    std::vector<SampleEnd> sample_ends() const override { return file_->sample_ends(); }
    std::vector<std::string> doubts() const override { return file_->doubts(); }

  private:
    void deliver_all(const std::stop_token& stop, DatagramSink& sink);

    std::unique_ptr<DatagramFile> file_;
    std::exception_ptr error_; // written by the thread before ended_
    std::atomic<bool> ended_ = false;
    std::jthread thread_; // uses all of the above
};

} // namespace task
