#include "a2l_file.h"

#include "block_index.h"
#include "measurement.h"
#include "near_names.h"
#include "place_search.h"
#include "signal_reader.h"
#include "token_values.h"
#include "xcp_reader.h"

#include <charconv>
#include <utility>

namespace a2l {

namespace {

// Takes the last index, as in [3], off the name.
std::optional<std::uint32_t> take_last_index(std::string_view& name) {
    const std::size_t bracket = name.rfind('[');
    if (bracket == name.npos || bracket == 0 || !name.ends_with(']'))
        return {};
    std::uint32_t index = 0;
    const char* last = name.data() + name.size() - 1;
    const auto parsed = std::from_chars(name.data() + bracket + 1, last, index);
    if (parsed.ec != std::errc{} || parsed.ptr != last)
        return {};
    name = name.substr(0, bracket);
    return index;
}

} // namespace

struct File::Contents {
    SourceFiles files;
    BlockIndex index;
    ModuleDefaults defaults;
    Xcp xcp;
    std::vector<std::string> warnings;
};

File::File(const std::string& path) : contents_(std::make_unique<Contents>()) {
    Contents& c = *contents_;
    Warnings warnings;
    c.index = read_index(path, c.files, warnings);
    c.xcp = read_xcp(c.files, c.index.ifData, warnings);
    if (c.index.modCommon)
        c.defaults.byteOrder = read_default_byte_order(c.files, *c.index.modCommon);
    c.defaults.addressGranularity = c.xcp.addressGranularity.value_or(1);
    c.warnings = warnings.take(path);
}

File::~File() = default;
File::File(File&&) noexcept = default;
File& File::operator=(File&&) noexcept = default;

const Xcp& File::xcp() const {
    return contents_->xcp;
}

const std::vector<std::string>& File::warnings() const {
    return contents_->warnings;
}

std::vector<std::string> File::names() const {
    std::vector<std::string> names;
    names.reserve(contents_->index.measurements.blocks().size());
    for (const Block& block : contents_->index.measurements.blocks())
        names.emplace_back(block.name);
    return names;
}

std::vector<std::uint32_t> File::dimensions(std::string_view name) const {
    const Block* block = contents_->index.measurements.find(name);
    if (block == nullptr)
        return {};
    return read_measurement(contents_->files, *block).dimensions;
}

// A MEASUREMENT's own name may end in indices too.
std::optional<Signal> File::find(std::string_view asked) const {
    const Contents& c = *contents_;
    std::string_view name = asked;
    std::vector<std::uint32_t> indices;
    for (;;) {
        if (const Block* block = c.index.measurements.find(name)) {
            Signal signal = read_signal(c.files, c.index, c.defaults, *block, indices);
            signal.name = asked;
            return signal;
        }
        const auto index = take_last_index(name);
        if (!index)
            return {};
        indices.insert(indices.begin(), *index);
    }
}

std::map<MemoryPlace, std::vector<std::string>>
File::names_at(const std::set<MemoryPlace>& places) const {
    const Contents& c = *contents_;
    return find_names(c.files, c.index, c.defaults.addressGranularity, places);
}

std::vector<std::string> File::near_names(std::string_view name) const {
    return a2l::near_names(contents_->index.measurements.blocks(), name);
}

} // namespace a2l
