#pragma once
// Datagrams from the simulated slave, over the loopback interface like any other's.

#include "simulated_slave.h"
#include "udp_source.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace task {

class SimulatedSource : public DatagramSource {
  public:
    explicit SimulatedSource(const std::set<SimulatedFault>& faults) : faults_(faults) {}

    void start(DatagramSink sink) override;
    std::string description() const override {
        return "of a simulated slave, " + receiver_->description();
    }
    bool can_wait() const override { return false; }
    bool ended() const override { return receiver_->ended(); }
    void stop() override;
    void check() const override;
    Losses losses() const override { return receiver_->losses(); }
    std::vector<std::string> missing_values() const override;

  private:
    const std::set<SimulatedFault> faults_;
    std::unique_ptr<SimulatedSlave> slave_;
    std::unique_ptr<UdpSource> receiver_;
};

} // namespace task
