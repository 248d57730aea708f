#include "simulated_source.h"

#include "host/standin/variable_store.h"
#include "task/exit_status.h"

#include <fmt/format.h>

#include <cmath>
#include <system_error>

namespace task {

namespace {

using halmor_standin::VariableKind;
using halmor_standin::VariableStore;

// The values of all measurements that a variable takes; with several, the last value is not known.
struct Expected {
    std::uint64_t count = 0;
    std::optional<double> value;
};

std::string missing(const std::string& name, const Expected& expected) {
    const halmor_standin::Variable& variable = *VariableStore::instance().find(name);
    const auto got = variable.read();
    if (got.updates != expected.count)
        return fmt::format("{}: {} of {} values arrived", name, got.updates, expected.count);
    if (expected.count == 0 || !expected.value)
        return "";
    const double value =
        variable.kind() == VariableKind::integer ? std::trunc(*expected.value) : *expected.value;
    if (got.value == value || (std::isnan(got.value) && std::isnan(value)))
        return "";
    return fmt::format("{}: {} arrived instead of {}", name, got.value, value);
}

} // namespace

RunningSlave::RunningSlave(const a2l::File& file,
                           const std::set<simulated_slave::Fault>& faults) try
    : server_(file, faults, io::parse_endpoint("127.0.0.1:0")) {
    server_.start();
} catch (const std::exception& error) {
    throw Failure(ExitStatus::network, std::string("the simulated slave: ") + error.what());
}

SimulatedSource::SimulatedSource(const a2l::File& file,
                                 const std::set<simulated_slave::Fault>& faults,
                                 std::multimap<std::string, std::string> variables,
                                 SlaveSettings settings)
    : RunningSlave(file, faults), SlaveSource(server_.endpoint(), std::move(settings)),
      variables_(std::move(variables)) {}

void SimulatedSource::stop() {
    SlaveSource::stop();
    server_.stop();
}

void SimulatedSource::check() const {
    SlaveSource::check();
    if (!server_.error().empty())
        throw Failure(ExitStatus::network, "the simulated slave: " + server_.error());
}

std::vector<std::string> SimulatedSource::missing_values() const {
    std::map<std::string, Expected> expected; // by variable
    const auto sent = server_.sent();
    for (const auto& [measurement, variable] : variables_) {
        Expected& each = expected[variable];
        const bool first = each.count == 0;
        if (const auto found = sent.find(measurement); found != sent.end()) {
            each.count += found->second.count;
            each.value = first ? std::optional(found->second.physical) : std::nullopt;
        }
    }
    std::vector<std::string> lines;
    for (const auto& [name, value] : expected)
        if (std::string line = missing(name, value); !line.empty())
            lines.push_back(std::move(line));
    return lines;
}

} // namespace task
