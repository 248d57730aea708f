#include "daq_lists.h"

#include "refusal.h"
#include "xcp/message.h"

#include <algorithm>

namespace simulated_slave {

namespace {

using xcp::Acknowledgement;
using xcp::Error;

constexpr std::size_t list_bytes = 16; // of the slave's memory
constexpr std::size_t odt_bytes = 8;
constexpr std::size_t entry_bytes = 8;
constexpr std::size_t memory_bytes = 65536;
constexpr std::size_t greatest_odts = xcp::last_daq_pid + 1;

bool complete(const DaqList& list) {
    const auto written = [](const MemoryView& entry) { return entry.size != 0; };
    const auto full = [&](const auto& entries) {
        return !entries.empty() && std::all_of(entries.begin(), entries.end(), written);
    };
    return list.event && !list.odts.empty() &&
           std::all_of(list.odts.begin(), list.odts.end(), full);
}

} // namespace

bool DaqLists::running() const {
    return std::any_of(all().begin(), all().end(), [](const auto& list) { return list.running; });
}

std::uint8_t DaqLists::first_pid(std::size_t list) const {
    std::size_t pid = 0;
    for (std::size_t i = 0; properties_.absolute() && i < list; ++i)
        pid += all()[i].odts.size();
    return static_cast<std::uint8_t>(pid);
}

void DaqLists::clear() {
    setUp_ = {};
    stage_ = Stage::none;
}

// ---- allocation ----

// FREE_DAQ, then all lists, then all ODTs, then all entries.
void DaqLists::enter(Stage stage) const {
    refuse_if(running(), Error::daq_active);
    refuse_if(stage_ != stage && static_cast<int>(stage_) + 1 != static_cast<int>(stage),
              Error::sequence);
}

std::size_t DaqLists::own_number(std::uint16_t number) const {
    return static_cast<std::size_t>(number) - properties_.minDaq; // or far above all
}

template <class Command>
Command DaqLists::with_own_number(Command command) const {
    command.daq = static_cast<std::uint16_t>(own_number(command.daq));
    return command;
}

DaqList& DaqLists::list(std::uint16_t number, Error otherwise) {
    const std::size_t own = own_number(number);
    refuse_if(own >= all().size(), otherwise);
    return setUp_.lists()[own];
}

std::size_t DaqLists::memory_use() const {
    std::size_t bytes = list_bytes * all().size();
    for (const DaqList& list : all())
        for (const auto& entries : list.odts)
            bytes += odt_bytes + entry_bytes * entries.size();
    return bytes;
}

std::size_t DaqLists::odts() const {
    std::size_t count = 0;
    for (const DaqList& list : all())
        count += list.odts.size();
    return count;
}

Acknowledgement DaqLists::execute(const xcp::FreeDaq& /*command*/) {
    refuse_if(running(), Error::daq_active);
    clear();
    stage_ = Stage::freed;
    return {};
}

Acknowledgement DaqLists::execute(const xcp::AllocDaq& command) {
    enter(Stage::lists);
    const bool numberIsByte = properties_.identification == a2l::IdentificationField::relative_byte;
    refuse_if(command.count == 0 || (numberIsByte && command.count + properties_.minDaq > 256) ||
                  (properties_.maxDaq != 0 && command.count > properties_.maxDaq),
              Error::out_of_range);
    refuse_if(list_bytes * command.count > memory_bytes, Error::memory_overflow);
    setUp_.apply(command);
    stage_ = Stage::lists;
    return {};
}

Acknowledgement DaqLists::execute(const xcp::AllocOdt& command) {
    enter(Stage::odts);
    const auto& own = list(command.daq, Error::daq_config).odts;
    const std::size_t others = properties_.absolute() ? odts() - own.size() : 0;
    refuse_if(command.count == 0 || others + command.count > greatest_odts, Error::out_of_range);
    refuse_if(memory_use() + odt_bytes * command.count > memory_bytes + odt_bytes * own.size(),
              Error::memory_overflow);
    setUp_.apply(with_own_number(command));
    stage_ = Stage::odts;
    return {};
}

Acknowledgement DaqLists::execute(const xcp::AllocOdtEntry& command) {
    enter(Stage::entries);
    const DaqList& own = list(command.daq, Error::daq_config);
    refuse_if(command.odt >= own.odts.size() || command.count == 0, Error::out_of_range);
    const auto& entries = own.odts[command.odt];
    refuse_if(memory_use() + entry_bytes * command.count >
                  memory_bytes + entry_bytes * entries.size(),
              Error::memory_overflow);
    setUp_.apply(with_own_number(command));
    stage_ = Stage::entries;
    return {};
}

// ---- layout ----

Acknowledgement DaqLists::execute(const xcp::SetDaqPtr& command) {
    refuse_if(running(), Error::daq_active);
    const DaqList& own = list(command.daq, Error::out_of_range);
    refuse_if(command.odt >= own.odts.size() || command.entry >= own.odts[command.odt].size(),
              Error::out_of_range);
    setUp_.apply(with_own_number(command));
    return {};
}

Acknowledgement DaqLists::execute(const xcp::WriteDaq& command) {
    refuse_if(running(), Error::daq_active);
    const auto pointer = setUp_.pointer();
    refuse_if(!pointer, Error::daq_config);
    const DaqList& own = all()[pointer->list];
    const auto& entries = own.odts[pointer->odt];
    refuse_if(pointer->entry >= entries.size() || command.bitOffset != xcp::WriteDaq::no_bit ||
                  command.size == 0 || command.size > properties_.maxEntrySize ||
                  command.size % properties_.granularity != 0 ||
                  command.address % properties_.granularity != 0,
              Error::out_of_range);
    auto view = memory_.view(command.extension, command.address, command.size);
    refuse_if(!view, Error::access_denied);
    refuse_if(packet_size(own, pointer->odt, stamped(own)) - entries[pointer->entry].size +
                      view->size >
                  properties_.maxDto,
              Error::out_of_range);
    setUp_.write(std::move(*view));
    return {};
}

std::size_t DaqLists::packet_size(const DaqList& list, std::size_t odt, bool stamped) const {
    std::size_t size = properties_.identification_size();
    if (odt == 0 && stamped)
        size += properties_.timestamp.size;
    for (const MemoryView& entry : list.odts[odt])
        size += entry.size;
    return size;
}

bool DaqLists::stamped(const DaqList& list) const {
    return properties_.timestamp.fixed || list.stamped();
}

// ---- mode and state ----

Acknowledgement DaqLists::execute(const xcp::SetDaqListMode& command) {
    using Mode = xcp::SetDaqListMode;
    refuse_if(running(), Error::daq_active);
    const DaqList& own = list(command.daq, Error::out_of_range);
    const a2l::Event* const event = properties_.find_event(command.event);
    refuse_if(event == nullptr || !event->daq || command.prescaler != 1, Error::out_of_range);
    refuse_if((command.mode & Mode::pid_off) != 0, Error::out_of_range);
    const bool stamped = (command.mode & Mode::timestamp) != 0;
    refuse_if((command.mode & ~Mode::timestamp) != 0, Error::mode_not_valid);
    refuse_if(stamped && properties_.timestamp.size == 0, Error::mode_not_valid);
    refuse_if(!stamped && properties_.timestamp.fixed, Error::cmd_syntax);
    refuse_if(own.event.has_value(), Error::daq_config);
    refuse_if(!own.odts.empty() && packet_size(own, 0, stamped) > properties_.maxDto,
              Error::out_of_range);
    setUp_.apply(with_own_number(command));
    return {};
}

xcp::StartStopDaqList::Answer DaqLists::execute(const xcp::StartStopDaqList& command) {
    using Command = xcp::StartStopDaqList;
    const DaqList& own = list(command.daq, Error::out_of_range);
    refuse_if(command.mode != Command::select && command.mode != Command::stop,
              Error::mode_not_valid);
    refuse_if(command.mode == Command::select && !complete(own), Error::daq_config);
    setUp_.apply(with_own_number(command));
    return {first_pid(own_number(command.daq))};
}

Acknowledgement DaqLists::execute(const xcp::StartStopSynch& command) {
    using Command = xcp::StartStopSynch;
    switch (command.mode) {
    case Command::stop_all:
        refuse_if(!running(), Error::daq_config);
        break;
    case Command::start_selected:
    case Command::prepare_start:
        refuse_if(running(), Error::daq_active);
        refuse_if(!any_selected(), Error::daq_config);
        break;
    case Command::stop_selected:
        refuse_if(!any_selected(), Error::daq_config);
        break;
    default:
        throw Refusal{Error::mode_not_valid};
    }
    setUp_.apply(command);
    return {};
}

bool DaqLists::any_selected() const {
    return std::any_of(all().begin(), all().end(), [](const auto& list) { return list.selected; });
}

} // namespace simulated_slave
