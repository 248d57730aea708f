#pragma once
// Datagrams from a slave that is simulated from the A2L file and set up like any other, over the
// loopback interface. The slave knows nothing of the plan: it judges what has arrived by addresses
// and by its own conversions.

#include "simulated_slave/server.h"
#include "slave_source.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace task {

// Made before the source that talks to it.
class RunningSlave {
  protected:
    // Throws Failure.
    RunningSlave(const a2l::File& file, const std::set<simulated_slave::Fault>& faults);

    simulated_slave::Server server_;
};

class SimulatedSource : private RunningSlave, public SlaveSource {
  public:
    // `variables`: those of the host that take a measurement, by its name. Throws Failure.
    SimulatedSource(const a2l::File& file, const std::set<simulated_slave::Fault>& faults,
                    std::multimap<std::string, std::string> variables, SlaveSettings settings);

    std::string description() const override {
        return "of a simulated slave, " + SlaveSource::description();
    }
    void stop() override;
    void check() const override;
    std::vector<std::string> missing_values() const override;

  private:
    const std::multimap<std::string, std::string> variables_;
};

} // namespace task
