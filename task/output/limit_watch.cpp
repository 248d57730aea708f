#include "limit_watch.h"

#include <fmt/format.h>

#include <algorithm>

namespace task {

using halmor_standin::Variable;
using halmor_standin::VariableStore;

LimitWatch::LimitWatch(const PlausibleRanges& ranges) {
    for (const Variable& variable : VariableStore::instance().variables()) {
        Range& range = ranges_.emplace_back();
        if (const auto found = ranges.find(variable.name()); found != ranges.end()) {
            range.lower = found->second.lower;
            range.upper = found->second.upper;
        }
    }
}

void LimitWatch::note(Range& range, double value, const timespec& sampleTime) {
    if (range.outside++ == 0)
        range.first = sampleTime;
    range.least = std::min(range.least, value);
    range.greatest = std::max(range.greatest, value);
}

std::vector<std::string> LimitWatch::lines() const {
    std::vector<std::string> lines;
    for (const Variable& variable : VariableStore::instance().variables())
        if (const Range& range = ranges_[variable.number()]; range.outside > 0)
            lines.push_back(fmt::format(
                "{}: {} values outside of {:g} to {:g}, the first at {}.{:09}, from {:g} to {:g}",
                variable.name(), range.outside, range.lower, range.upper, range.first.tv_sec,
                range.first.tv_nsec, range.least, range.greatest));
    return lines;
}

} // namespace task
