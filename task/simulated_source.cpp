#include "simulated_source.h"

#include "exit_status.h"
#include "value_conversion.h"
#include "variable_store.h"

#include <fmt/format.h>

#include <cmath>
#include <system_error>

namespace task {

namespace {

using halmor_standin::VariableKind;

template <class Unsigned>
double converted(const SentValue& sent) {
    const odt_table_entry& e = *sent.entry;
    const xcp_daq::Conversion conversion{e.factor, e.offset, e.lowerLimit, e.upperLimit};
    const auto raw = static_cast<Unsigned>(sent.raw);
    return e.hostVar->kind == static_cast<std::uint16_t>(VariableKind::integer)
               ? xcp_daq::convert_to_integer(raw, conversion)
               : xcp_daq::convert_to_real(raw, conversion);
}

double expected_value(const SentValue& sent) {
    switch (sent.entry->size) {
    case 1:
        return converted<std::uint8_t>(sent);
    case 2:
        return converted<std::uint16_t>(sent);
    case 4:
        return converted<std::uint32_t>(sent);
    case 8:
        return converted<std::uint64_t>(sent);
    default:
        return std::nan("");
    }
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
    receiver_ = std::make_unique<UdpSource>(halmor_standin::parse_endpoint("127.0.0.1:0"),
                                            slave_->endpoint());
    receiver_->start(std::move(sink));
    slave_->start(receiver_->local());
}

// A datagram on the loopback interface is in the receiver's buffer once it has been sent.
void SimulatedSource::stop() {
    slave_->stop();
    receiver_->stop();
}

void SimulatedSource::check() const {
    receiver_->check();
    if (!slave_->error().empty())
        throw Failure(ExitStatus::network, "the simulated slave cannot send: " + slave_->error());
}

std::vector<std::string> SimulatedSource::missing_values() const {
    std::vector<std::string> lines;
    for (const auto& [name, sent] : slave_->sent()) {
        const auto got = halmor_standin::VariableStore::instance().find(name)->read();
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
