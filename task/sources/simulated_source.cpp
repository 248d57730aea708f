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

// What an integer variable is to hold of a value.
double whole(double value) {
    if (std::isnan(value))
        return 0;
    return std::clamp(std::trunc(value), -0x1p31, 0x1p31 - 1);
}

// The host may not have the variable.
std::uint64_t updates_of(const std::string& name) {
    const halmor_standin::Variable* const variable = VariableStore::instance().find(name);
    return variable == nullptr ? 0 : variable->read().updates;
}

std::string compare(const std::string& name, const simulated_slave::SentValue& sent) {
    const halmor_standin::Variable* const variable = VariableStore::instance().find(name);
    if (variable == nullptr || sent.count == 0)
        return "";
    const double got = variable->read().value;
    const double value =
        variable->kind() == VariableKind::integer ? whole(sent.physical) : sent.physical;
    if (got == value || (std::isnan(got) && std::isnan(value)))
        return "";
    return fmt::format("{}: {} arrived instead of {}", name, got, value);
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

// A measurement may be in several lists, each with a variable of its own; then it is not known
// which of them the last value went to.
std::vector<std::string> SimulatedSource::missing_values() const {
    std::vector<std::string> lines;
    const auto sent = server_.sent();
    for (auto next = variables_.begin(); next != variables_.end();) {
        const std::string measurement = next->first;
        const auto found = sent.find(measurement);
        const auto value = found == sent.end() ? simulated_slave::SentValue{} : found->second;
        const auto end = variables_.upper_bound(measurement);
        const bool single = std::next(next) == end;
        std::set<std::string> names;
        for (; next != end; ++next)
            names.insert(next->second);
        std::uint64_t updates = 0;
        for (const std::string& name : names)
            updates += updates_of(name);
        std::string line;
        if (updates != value.count)
            line = fmt::format("{}: {} of {} values arrived", fmt::join(names, ", "), updates,
                               value.count);
        else if (single)
            line = compare(*names.begin(), value);
        if (!line.empty())
            lines.push_back(std::move(line));
    }
    return lines;
}

} // namespace task
