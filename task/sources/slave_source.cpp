#include "slave_source.h"

#include "task/exit_status.h"

#include <algorithm>
#include <system_error>

namespace task {

using xcp_master::SessionError;

SlaveSource::SlaveSource(const io::UdpEndpoint& slave, SlaveSettings settings)
    : slave_(slave),
      link_(
          slave,
          [this, stopWanted = std::move(settings.stopWanted)] { return stopping_ || stopWanted(); },
          std::move(settings.urgent)),
      session_(link_, settings.timeout, std::move(settings.trace)) {}

void SlaveSource::fail(const std::string& cause) const {
    throw Failure(ExitStatus::network, "slave " + to_text(slave_) + ": " + cause);
}

xcp_master::SlaveProperties SlaveSource::connect(const xcp_master::StatedProperties& stated,
                                                 const std::vector<xcp_master::WantedList>& lists) {
    stated_ = stated;
    wanted_ = lists;
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

// After a failure nothing is to come any more: whoever takes the datagrams may go.
void SlaveSource::start(DatagramSink& sink) {
    try {
        session_.start(plan_, [&](const auto& firstPids) {
            if (form_) // the start was not answered, and the slave may have begun
                sink.begin_session("the slave was set up again");
            begin(sink, firstPids);
        });
    } catch (const SessionError& error) {
        link_.stop();
        fail(error.what());
    } catch (const std::system_error& error) { // which names the address
        link_.stop();
        throw Failure(ExitStatus::network, error.what());
    }
    keeper_.emplace(link_, session_, longest_silence(),
                    [this, &sink] { return begin_again(sink); });
}

// Whatever comes before the start belongs to a session before.
void SlaveSource::begin(DatagramSink& sink, const std::vector<std::uint8_t>& firstPids) {
    link_.shut();
    const auto form = std::make_shared<xcp_master::DtoForm>(properties_, plan_, firstPids);
    {
        const std::lock_guard lock(formMutex_);
        overloads_ += form_ ? form_->overloads() : 0;
        untold_ += form_ ? form_->untold() : 0;
        form_ = form;
    }
    link_.await_quiet();
    link_.open([form, &sink](std::span<const std::uint8_t> payload, Arrival arrival) {
        sink.take(form->take(payload, arrival.time_since_epoch()), arrival);
    });
}

bool SlaveSource::begin_again(DatagramSink& sink) {
    link_.shut();
    const auto slave = session_.reconnect(stated_, wanted_);
    if (!slave)
        return false;
    check_plan(*slave);
    session_.start(plan_, [&](const auto& firstPids) {
        sink.begin_session("the slave was away");
        begin(sink, firstPids);
    });
    return true;
}

// The library has laid out this plan, and its table cannot be changed.
void SlaveSource::check_plan(const xcp_master::SlaveProperties& slave) const {
    auto plan = xcp_master::make_plan(wanted_, limits_of(slave));
    plan.firstDaq = slave.minDaq;
    const auto before = in_words(properties_);
    const auto now = in_words(slave);
    for (std::size_t i = 0; i < now.size(); ++i)
        if (now[i].value != before[i].value)
            throw xcp_master::Unsuitable("it came back as another one: its " + now[i].name +
                                         " is " + now[i].value + " and was " + before[i].value);
    if (plan != plan_)
        throw xcp_master::Unsuitable("it came back as another one: its DAQ lists differ");
}

// Five cycles of the slowest list.
std::chrono::nanoseconds SlaveSource::longest_silence() const {
    std::chrono::nanoseconds longest = std::chrono::seconds(2);
    for (const auto& event : properties_.events)
        longest = std::max(longest, 5 * std::chrono::nanoseconds(event.cycle_ns));
    return longest;
}

void SlaveSource::doubt_session() {
    if (keeper_)
        keeper_->doubt();
}

bool SlaveSource::ended() const {
    return !link_.receiver().error().empty() || (keeper_ && !keeper_->error().empty());
}

std::string SlaveSource::way() const {
    return to_text(slave_) + " from " + to_text(link_.receiver().local());
}

std::string SlaveSource::description() const {
    return "from " + to_text(slave_) + " on " + to_text(link_.receiver().local());
}

// The slave has stopped before receiving ends: what it sent until then counts.
void SlaveSource::stop() {
    stopping_ = true;
    if (keeper_)
        keeper_->stop();
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
    if (keeper_ && !keeper_->error().empty())
        fail(keeper_->error());
    if (!endError_.empty())
        fail("not ended in order: " + endError_);
}

DatagramSource::Losses SlaveSource::losses() const {
    const auto counters = link_.receiver().counters();
    const std::lock_guard lock(formMutex_);
    return {counters.kernelDrops, counters.foreign, overloads_ + (form_ ? form_->overloads() : 0),
            untold_ + (form_ ? form_->untold() : 0)};
}

std::vector<DatagramSource::ListInfo> SlaveSource::lists() const {
    std::vector<ListInfo> lists;
    for (std::size_t i = 0; i < plan_.lists.size(); ++i)
        lists.push_back({plan_.lists[i].name, properties_.events.at(i).cycle_ns});
    return lists;
}

std::vector<std::string> SlaveSource::doubts() const {
    if (endError_.empty())
        return {};
    return {"the session did not end in order: " + endError_};
}

std::vector<std::string> SlaveSource::notes() const {
    if (properties_.timestampSize > 0)
        return {};
    return {"the slave has no timestamps: the sample time is the time of arrival"};
}

} // namespace task
