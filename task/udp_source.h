#pragma once
// Datagrams from a slave on the network.

#include "datagram_source.h"
#include "udp_receiver.h"

#include <optional>

namespace task {

class UdpSource : public DatagramSource {
  public:
    UdpSource(const halmor_standin::UdpEndpoint& listen, const halmor_standin::UdpEndpoint& slave)
        : listen_(listen), slave_(slave) {}

    void start(DatagramSink sink) override;
    bool ended() const override { return !receiver_->error().empty(); }
    std::string description() const override;
    void stop() override;
    void check() const override;
    Losses losses() const override;

    // After start: where the slave is to send to.
    halmor_standin::UdpEndpoint local() const { return receiver_->local(); }

  private:
    halmor_standin::UdpEndpoint listen_;
    halmor_standin::UdpEndpoint slave_;
    std::optional<halmor_standin::UdpReceiver> receiver_;
};

} // namespace task
