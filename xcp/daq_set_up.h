#pragma once
// What commands make of a slave's DAQ lists: their entries, mode and state. Whoever executes
// commands has checked them, or knows that the slave took them, before they are applied here. So a
// list or an ODT that nobody has allocated is one that the slave has by itself.

#include "commands.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace xcp {

// An entry is whatever WRITE_DAQ means to the user of this; one that is not written yet is Entry{}.
template <class Entry>
struct DaqListSetUp {
    std::vector<std::vector<Entry>> odts;
    std::optional<std::uint16_t> event; // empty: it has no mode
    std::uint8_t mode = 0;              // of SET_DAQ_LIST_MODE
    bool selected = false;
    bool running = false;

    bool stamped() const { return (mode & SetDaqListMode::timestamp) != 0; }
};

// Where the next entry goes: perhaps behind the last one of its ODT.
struct DaqPointer {
    std::size_t list;
    std::size_t odt;
    std::size_t entry;
};

template <class Entry>
class DaqSetUp {
  public:
    using List = DaqListSetUp<Entry>;

    const std::vector<List>& lists() const { return lists_; }
    std::vector<List>& lists() { return lists_; }
    const std::optional<DaqPointer>& pointer() const { return pointer_; }

    // The lists below it are the slave's own, which are never freed.
    void set_first_dynamic(std::size_t number) { firstDynamic_ = number; }
    std::size_t first_dynamic() const { return firstDynamic_; }

    void apply(const FreeDaq& /*command*/) {
        lists_.resize(std::min(lists_.size(), firstDynamic_));
        pointer_.reset();
    }
    void apply(const AllocDaq& command) {
        lists_.resize(firstDynamic_);
        lists_.resize(firstDynamic_ + command.count);
    }
    void apply(const AllocOdt& command) { list(command.daq).odts.assign(command.count, {}); }
    void apply(const AllocOdtEntry& command) {
        odt(command.daq, command.odt).assign(command.count, {});
    }
    void apply(const ClearDaqList& command) {
        List& own = list(command.daq);
        for (auto& entries : own.odts)
            entries.assign(entries.size(), {});
        own.event.reset();
        own.selected = own.running = false;
    }
    void apply(const SetDaqPtr& command) { pointer_ = {command.daq, command.odt, command.entry}; }

    // At the pointer, which moves on; nowhere when there is none.
    void write(Entry entry) {
        if (!pointer_)
            return;
        auto& entries = odt(pointer_->list, pointer_->odt);
        if (pointer_->entry >= entries.size())
            entries.resize(pointer_->entry + 1);
        entries[pointer_->entry++] = std::move(entry);
    }

    void apply(const SetDaqListMode& command) {
        List& own = list(command.daq);
        own.event = command.event;
        own.mode = command.mode;
    }
    void apply(const StartStopDaqList& command) {
        List& own = list(command.daq);
        own.selected = command.mode == StartStopDaqList::select;
        if (!own.selected)
            own.running = command.mode == StartStopDaqList::start;
    }
    void apply(const StartStopSynch& command) {
        const bool starts = command.mode == StartStopSynch::start_selected;
        if (!starts && command.mode != StartStopSynch::stop_selected &&
            command.mode != StartStopSynch::stop_all)
            return;
        for (List& each : lists_)
            if (each.selected || command.mode == StartStopSynch::stop_all) {
                each.running = starts;
                each.selected = false;
            }
    }

  private:
    List& list(std::size_t number) {
        if (number >= lists_.size())
            lists_.resize(number + 1);
        return lists_[number];
    }
    std::vector<Entry>& odt(std::size_t listNumber, std::size_t number) {
        auto& odts = list(listNumber).odts;
        if (number >= odts.size())
            odts.resize(number + 1);
        return odts[number];
    }

    std::size_t firstDynamic_ = 0;
    std::vector<List> lists_;
    std::optional<DaqPointer> pointer_;
};

} // namespace xcp
