#include "signal_memory.h"

#include "io/file_error.h"
#include "numbers.h"
#include "signal_values.h"

#include <algorithm>
#include <string>
#include <utility>

namespace simulated_slave {

namespace {

constexpr std::size_t largest_signal = 8;

// One line of addresses for all extensions, with room between them.
std::uint64_t place_of(std::uint8_t extension, std::uint32_t address) {
    return std::uint64_t{extension} << 40 | address;
}

// The names of all elements: a[0][0], a[0][1], ...
std::vector<std::string> elements_of(const std::string& name,
                                     const std::vector<std::uint32_t>& dimensions) {
    constexpr std::uint64_t most_elements = 65'536; // larger ones are not simulated
    std::uint64_t elements = 1;
    for (const std::uint32_t count : dimensions)
        elements = std::min(elements * count, most_elements + 1);
    if (elements > most_elements)
        return {};
    std::vector<std::string> names = {name};
    for (const std::uint32_t count : dimensions) {
        std::vector<std::string> longer;
        for (const std::string& begin : names)
            for (std::uint32_t i = 0; i < count; ++i)
                longer.push_back(begin + "[" + std::to_string(i) + "]");
        names = std::move(longer);
    }
    return names;
}

} // namespace

std::vector<a2l::Signal> signals_of(const a2l::File& file) {
    std::vector<a2l::Signal> signals;
    for (const std::string& name : file.names())
        try {
            for (const std::string& element : elements_of(name, file.dimensions(name)))
                if (const auto signal = file.find(element))
                    signals.push_back(*signal);
        } catch (const io::FileError&) {
            continue; // no master can measure it either
        }
    return signals;
}

SignalMemory::SignalMemory(std::vector<a2l::Signal> signals) : signals_(std::move(signals)) {
    for (std::size_t i = 0; i < signals_.size(); ++i)
        places_.emplace(place_of(signals_[i].addressExtension, signals_[i].address), i);
}

std::optional<std::size_t> SignalMemory::owner_of(std::uint64_t place) const {
    std::optional<std::size_t> owner;
    const auto end = places_.upper_bound(place);
    auto each = places_.lower_bound(place - std::min<std::uint64_t>(place, largest_signal - 1));
    for (; each != end; ++each)
        if (each->first + a2l::size_of(signals_[each->second].type) > place)
            owner = std::min(owner.value_or(each->second), each->second);
    return owner;
}

std::optional<MemoryView> SignalMemory::view(std::uint8_t extension, std::uint32_t address,
                                             std::size_t size) const {
    MemoryView view;
    view.size = size;
    const std::uint64_t begin = view.place = place_of(extension, address);
    for (std::uint64_t place = begin; place < begin + size; ++place) {
        const auto owner = owner_of(place);
        if (!owner)
            return {};
        const a2l::Signal& signal = signals_[*owner];
        const std::size_t byte = place - place_of(extension, signal.address);
        if (!view.parts.empty() && view.parts.back().signal == *owner)
            ++view.parts.back().count;
        else
            view.parts.push_back({*owner, byte, 1});
    }
    find_signals(begin, view);
    return view;
}

std::optional<MemoryView> SignalMemory::joined(const MemoryView& first,
                                               const MemoryView& second) const {
    if (first.place + first.size != second.place)
        return {};
    return view(static_cast<std::uint8_t>(first.place >> 32),
                static_cast<std::uint32_t>(first.place), first.size + second.size);
}

void SignalMemory::find_signals(std::uint64_t place, MemoryView& view) const {
    const auto size_at = [&](auto each) { return a2l::size_of(signals_[each->second].type); };
    const auto [first, last] = places_.equal_range(place);
    for (auto each = first; each != last; ++each)
        if (size_at(each) == view.size)
            view.signals.push_back({&signals_[each->second], 0});
    if (!view.signals.empty())
        return;
    const std::uint64_t end = place + view.size;
    for (auto each = first; each != places_.end() && each->first < end; ++each)
        if (each->first + size_at(each) <= end)
            view.signals.push_back({&signals_[each->second], each->first - place});
}

void SignalMemory::read(const MemoryView& view, std::uint64_t time_ns,
                        std::vector<std::uint8_t>& bytes) const {
    for (const auto& [number, first, count] : view.parts) {
        const a2l::Signal& signal = signals_[number];
        const std::uint64_t raw = raw_value(signal, number, time_ns);
        const std::size_t size = a2l::size_of(signal.type);
        for (std::size_t i = first; i < first + count; ++i)
            bytes.push_back(
                static_cast<std::uint8_t>(raw >> shift_of(i, size, order_of(signal.byteOrder))));
    }
}

} // namespace simulated_slave
