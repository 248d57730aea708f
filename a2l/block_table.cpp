#include "block_table.h"

#include <functional>
#include <utility>

namespace a2l {

namespace {

std::uint32_t hash_of(std::string_view name) {
    return static_cast<std::uint32_t>(std::hash<std::string_view>{}(name));
}

} // namespace

const Block* BlockTable::add(const Block& block) {
    const std::uint32_t hash = hash_of(block.name);
    Slot& slot = slots_[place_of(block.name, hash)];
    if (slot.number != 0)
        return &blocks_[slot.number - 1];
    blocks_.push_back(block);
    slot = {hash, static_cast<std::uint32_t>(blocks_.size())};
    if (blocks_.size() * 2 > slots_.size())
        grow();
    return nullptr;
}

const Block* BlockTable::find(std::string_view name) const {
    const Slot& slot = slots_[place_of(name, hash_of(name))];
    return slot.number == 0 ? nullptr : &blocks_[slot.number - 1];
}

// Of the slot that holds the name, or of the free one where it belongs.
std::size_t BlockTable::place_of(std::string_view name, std::uint32_t hash) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t place = hash & mask;
    while (slots_[place].number != 0 &&
           (slots_[place].hash != hash || blocks_[slots_[place].number - 1].name != name))
        place = (place + 1) & mask;
    return place;
}

void BlockTable::grow() {
    const std::vector<Slot> old = std::exchange(slots_, std::vector<Slot>(slots_.size() * 2));
    for (const Slot& slot : old) {
        if (slot.number == 0)
            continue;
        std::size_t place = slot.hash & (slots_.size() - 1);
        while (slots_[place].number != 0)
            place = (place + 1) & (slots_.size() - 1);
        slots_[place] = slot;
    }
}

} // namespace a2l
