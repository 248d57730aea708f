#pragma once
// Datagrams from a slave on the network.

#include "datagram_source.h"
#include "io/udp_receiver.h"

#include <optional>

namespace task {

class UdpSource : public DatagramSource {
  public:
    UdpSource(const io::UdpEndpoint& listen, const io::UdpEndpoint& slave)
        : listen_(listen), slave_(slave) {}

    void start(DatagramSink& sink) override;
    std::string description() const override;
    bool can_wait() const override { return false; }
    bool ended() const override { return !receiver_->error().empty(); }
    void stop() override;
    void check() const override;
    Losses losses() const override;

    // After start: where the slave is to send to.
    io::UdpEndpoint local() const { return receiver_->local(); }

  private:
    io::UdpEndpoint listen_;
    io::UdpEndpoint slave_;
    std::optional<io::UdpReceiver> receiver_;
};

} // namespace task
