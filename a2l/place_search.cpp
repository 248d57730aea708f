#include "place_search.h"

#include "measurement.h"
#include "signal_reader.h"
#include "token_values.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace a2l {

namespace {

// Where the elements of a MEASUREMENT lie; a single value is an array without dimensions.
struct Elements {
    MemoryPlace first;
    std::uint64_t count = 1;
};

std::optional<Elements> elements_of(const Measurement& measurement) {
    const auto type = type_named(measurement.type.text);
    const auto address = to_integer(measurement.address.text);
    const auto extension = to_integer(measurement.addressExtension.text).value_or(0);
    const auto addressType = measurement.addressType.text;
    if (!type || !address || *address > 0xFFFF'FFFF || extension > 0xFF || measurement.isVirtual ||
        (!addressType.empty() && addressType != "DIRECT"))
        return {};
    Elements elements{{static_cast<std::uint8_t>(extension), static_cast<std::uint32_t>(*address),
                       size_of(*type)}};
    constexpr std::uint64_t most = std::uint64_t{1} << 32; // bytes that there are addresses for
    for (const std::uint32_t size : measurement.dimensions)
        elements.count = std::min(most, elements.count * std::min<std::uint64_t>(size, most));
    return elements;
}

std::string name_of_element(const Measurement& measurement, std::uint64_t number) {
    const auto& sizes = measurement.dimensions;
    const bool byColumn = measurement.layout.text == "COLUMN_DIR";
    std::vector<std::uint64_t> indices(sizes.size());
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        const std::size_t dimension = byColumn ? i : sizes.size() - 1 - i; // the fastest first
        indices[dimension] = number % sizes[dimension];
        number /= sizes[dimension];
    }
    std::string name(measurement.name.text);
    for (const std::uint64_t index : indices)
        name.append(1, '[').append(std::to_string(index)).append(1, ']');
    return name;
}

} // namespace

std::map<MemoryPlace, std::vector<std::string>> find_names(const SourceFiles& files,
                                                           const BlockIndex& index,
                                                           std::size_t granularity,
                                                           const std::set<MemoryPlace>& places) {
    std::map<MemoryPlace, std::vector<std::string>> names;
    for (const Block& block : index.measurements.blocks()) {
        const Measurement measurement = read_measurement(files, block);
        const auto elements = elements_of(measurement);
        if (!elements)
            continue;
        const auto& [extension, begin, size] = elements->first;
        for (auto at = places.lower_bound({extension, begin, 0});
             at != places.end() && at->extension == extension; ++at) {
            const std::uint64_t bytes = std::uint64_t{at->address - begin} * granularity;
            if (bytes / size >= elements->count)
                break;
            if (at->size == size && bytes % size == 0)
                names[*at].push_back(name_of_element(measurement, bytes / size));
        }
    }
    for (auto& [place, found] : names)
        std::sort(found.begin(), found.end());
    return names;
}

} // namespace a2l
