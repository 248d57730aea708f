#include "captured_signals.h"

#include "io/file_error.h"

#include <fmt/format.h>

#include <algorithm>

namespace task {

namespace {

using a2l::MemoryPlace;
using Names = std::vector<std::string>;

MemoryPlace place_of(const a2l::Signal& signal) {
    return {signal.addressExtension, signal.address, a2l::size_of(signal.type)};
}

// "a, b and 4 more".
std::string first_few(const Names& names) {
    constexpr std::size_t shown = 5;
    const auto end = names.begin() + static_cast<std::ptrdiff_t>(std::min(names.size(), shown));
    const std::string text = fmt::format("{}", fmt::join(names.begin(), end, ", "));
    return names.size() <= shown ? text : fmt::format("{} and {} more", text, names.size() - shown);
}

void note(Names& notes, const char* what, const Names& which) {
    if (!which.empty())
        notes.push_back(fmt::format("{}: {}", what, first_few(which)));
}

// The first of the names that leads back to the place: a MEASUREMENT's own name can look like that
// of an array's element.
const std::string* add_first(const a2l::File& file, const MemoryPlace& place, const Names& names,
                             SignalMap& signals, Names& notes) {
    for (const std::string& name : names)
        try {
            const auto signal = file.find(name);
            if (signal && place_of(*signal) == place) {
                signals.emplace(place, NamedSignal{name, 0, *signal});
                return &name;
            }
        } catch (const io::FileError& fault) {
            notes.emplace_back(fault.what());
        }
    return nullptr;
}

} // namespace

SignalMap listed_signals(const std::set<MemoryPlace>& places, const SpecFile& spec,
                         const WantedSlave& wanted, Names& notes) {
    SignalMap signals;
    Names absent;
    Names shared;
    for (const ListSection& list : spec.lists)
        for (const auto& [line, measurement, variable] : list.measurements) {
            const a2l::Signal& signal = wanted.signals.at(measurement);
            const MemoryPlace place = place_of(signal);
            if (!places.contains(place)) {
                absent.push_back(measurement);
                continue;
            }
            const auto [known, isNew] =
                signals.try_emplace(place, NamedSignal{variable, line, signal});
            if (!isNew && known->second.variable != variable)
                shared.push_back(fmt::format("{} (of {})", variable, known->second.variable));
        }
    note(notes, "not measured in the capture", absent);
    note(notes, "left out, the same bytes as another variable", shared);
    return signals;
}

SignalMap all_signals(const std::set<MemoryPlace>& places, const a2l::File& file, Names& notes) {
    SignalMap signals;
    Names nameless;
    Names shared;
    const auto names = file.names_at(places);
    for (const MemoryPlace& place : places) {
        const auto found = names.find(place);
        const std::string* const taken =
            found == names.end() ? nullptr : add_first(file, place, found->second, signals, notes);
        if (taken == nullptr) {
            nameless.push_back(fmt::format("{} bytes at {:#010x}, extension {}", place.size,
                                           place.address, place.extension));
            continue;
        }
        for (const std::string& name : found->second)
            if (&name != taken)
                shared.push_back(fmt::format("{} (of {})", name, *taken));
    }
    note(notes, "passed over, no MEASUREMENT of the A2L file", nameless);
    note(notes, "left out, the same bytes as another MEASUREMENT", shared);
    return signals;
}

} // namespace task
