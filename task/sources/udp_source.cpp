#include "udp_source.h"

#include "task/exit_status.h"

#include <system_error>

namespace task {

void UdpSource::start(DatagramSink& sink) {
    try {
        receiver_.emplace(io::UdpSocket(listen_), slave_,
                          [this, &sink](const std::uint8_t* data, std::uint64_t length) {
                              sink.take({data, length}, receiver_->arrived());
                          });
    } catch (const std::system_error& error) {
        throw Failure(ExitStatus::network, error.what());
    }
}

std::string UdpSource::description() const {
    return "from " + to_text(slave_) + " on " + to_text(local());
}

void UdpSource::stop() {
    if (receiver_)
        receiver_->stop();
}

void UdpSource::check() const {
    if (!receiver_->error().empty())
        throw Failure(ExitStatus::network, "receiving failed: " + receiver_->error());
}

DatagramSource::Losses UdpSource::losses() const {
    const auto counters = receiver_->counters();
    return {counters.kernelDrops, counters.foreign};
}

} // namespace task
