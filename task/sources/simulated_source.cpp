#include "simulated_source.h"

#include "host/standin/variable_store.h"
#include "task/exit_status.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <system_error>

namespace task {

namespace {

using halmor_standin::VariableKind;
using halmor_standin::VariableStore;

// What a measurement's conversion says: factor, offset, limits, and whole numbers for an integer
// variable. An integer conversion that the library does not keep exact (--check names those) shows
// as another value.
double expected_value(const SentValue& sent) {
    const odt_table_entry& entry = *sent.entry;
    const volatile double product = static_cast<double>(sent.raw) * entry.factor; // never fused
    double value = product + entry.offset;
    if (value > entry.upperLimit)
        value = entry.upperLimit;
    else if (value < entry.lowerLimit)
        value = entry.lowerLimit;
    const bool integer = entry.hostVar->kind == static_cast<std::uint16_t>(VariableKind::integer);
    return integer ? std::trunc(value) : value;
}

bool same(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

} // namespace

void SimulatedSource::start(DatagramSink sink) {
    try {
        slave_ = std::make_unique<SimulatedSlave>(faults_);
    } catch (const std::system_error& error) {
        throw Failure(ExitStatus::network, error.what());
    }
    receiver_ = std::make_unique<UdpSource>(io::parse_endpoint("127.0.0.1:0"), slave_->endpoint());
    receiver_->start(std::move(sink));
    slave_->start(receiver_->local());
}

// A datagram on the loopback interface is in the receiver's buffer once it has been sent.
void SimulatedSource::stop() {
    if (slave_)
        slave_->stop();
    if (receiver_)
        receiver_->stop();
}

void SimulatedSource::check() const {
    receiver_->check();
    if (!slave_->error().empty())
        throw Failure(ExitStatus::network, "the simulated slave: " + slave_->error());
}

std::vector<std::string> SimulatedSource::missing_values() const {
    std::vector<std::string> lines;
    for (const auto& [name, sent] : slave_->sent()) {
        const auto got = VariableStore::instance().find(name)->read();
        if (sent.updates == 0)
            continue;
        if (got.updates != sent.updates)
            lines.push_back(
                fmt::format("{}: {} of {} values arrived", name, got.updates, sent.updates));
        else if (const double expected = expected_value(sent); !same(got.value, expected))
            lines.push_back(fmt::format("{}: {} arrived instead of {}", name, got.value, expected));
    }
    return lines;
}

} // namespace task
