#include "slave_source.h"

#include "task/exit_status.h"

#include <system_error>

namespace task {

using xcp_master::SessionError;

SlaveSource::SlaveSource(const io::UdpEndpoint& slave, SlaveSettings settings)
    : slave_(slave), link_(slave, std::move(settings.stopWanted), std::move(settings.urgent)),
      session_(link_, settings.timeout, std::move(settings.trace)) {}

void SlaveSource::fail(const std::string& cause) const {
    throw Failure(ExitStatus::network, "slave " + to_text(slave_) + ": " + cause);
}

xcp_master::SlaveProperties SlaveSource::connect(const xcp_master::StatedProperties& stated,
                                                 const std::vector<xcp_master::WantedList>& lists) {
    try {
        return properties_ = session_.connect(stated, lists);
    } catch (const SessionError& error) {
        fail(error.what());
    } catch (const std::system_error& error) { // which names the address
        throw Failure(ExitStatus::network, error.what());
    }
}

const xcp_master::DaqPlan&
SlaveSource::make_plan(const std::vector<xcp_master::WantedList>& lists) {
    try {
        plan_ = xcp_master::make_plan(lists, limits_of(properties_));
        plan_.firstDaq = properties_.minDaq;
        return plan_;
    } catch (const SessionError& error) {
        fail(error.what());
    }
}

// Whatever comes before the start belongs to a session before. After a failure nothing is to come
// any more: whoever takes the datagrams may go.
void SlaveSource::start(DatagramSink& sink) {
    try {
        session_.start(plan_, [&](const std::vector<std::uint8_t>& firstPids) {
            if (form_) // the set-up began anew, and the slave with it
                return;
            form_.emplace(properties_, plan_, firstPids);
            link_.await_quiet();
            link_.open([this, &sink](std::span<const std::uint8_t> payload, Arrival arrival) {
                sink.take(form_->take(payload, arrival.time_since_epoch()), arrival);
            });
        });
    } catch (const SessionError& error) {
        link_.stop();
        fail(error.what());
    } catch (const std::system_error& error) { // which names the address
        link_.stop();
        throw Failure(ExitStatus::network, error.what());
    }
}

std::string SlaveSource::way() const {
    return to_text(slave_) + " from " + to_text(link_.receiver().local());
}

std::string SlaveSource::description() const {
    return "from " + to_text(slave_) + " on " + to_text(link_.receiver().local());
}

// The slave has stopped before receiving ends: what it sent until then counts.
void SlaveSource::stop() {
    try {
        session_.end();
    } catch (const std::exception& error) {
        endError_ = error.what();
    }
    link_.stop();
}

void SlaveSource::check() const {
    if (!link_.receiver().error().empty())
        throw Failure(ExitStatus::network, "receiving failed: " + link_.receiver().error());
    if (!endError_.empty())
        fail("not ended in order: " + endError_);
}

DatagramSource::Losses SlaveSource::losses() const {
    const auto counters = link_.receiver().counters();
    Losses losses{counters.kernelDrops, counters.foreign};
    if (form_) {
        losses.overloads = form_->overloads();
        losses.untold = form_->untold();
    }
    return losses;
}

std::vector<DatagramSource::ListInfo> SlaveSource::lists() const {
    std::vector<ListInfo> lists;
    for (std::size_t i = 0; i < plan_.lists.size(); ++i)
        lists.push_back({plan_.lists[i].name, properties_.events.at(i).cycle_ns});
    return lists;
}

std::vector<std::string> SlaveSource::notes() const {
    if (properties_.timestampSize > 0)
        return {};
    return {"the slave has no timestamps: the sample time is the time of arrival"};
}

} // namespace task
