#include "file_source.h"

namespace task {

void FileSource::start(DatagramSink& sink) {
    thread_ = std::jthread([this, &sink](const std::stop_token& stop) {
        deliver_all(stop, sink);
        ended_ = true;
    });
}

void FileSource::deliver_all(const std::stop_token& stop, DatagramSink& sink) {
    try {
        file_->deliver_all(stop, sink);
    } catch (...) {
        error_ = std::current_exception();
    }
}

void FileSource::stop() {
    thread_.request_stop();
    if (thread_.joinable())
        thread_.join();
}

void FileSource::check() const {
    if (error_)
        std::rethrow_exception(error_);
}

} // namespace task
