#include "sampler.h"

#include "fault.h"
#include "numbers.h"
#include "signal_values.h"

#include <algorithm>
#include <set>

namespace simulated_slave {

using a2l::IdentificationField;

Sampler::Sampler(const Properties& properties, const SignalMemory& memory, const DaqLists& lists,
                 Clock& clock, Outbox& outbox, bool jumps)
    : properties_(properties), memory_(memory), lists_(lists), clock_(clock), outbox_(outbox),
      jumps_(jumps) {}

bool Sampler::used(std::uint16_t event) const {
    return std::any_of(lists_.all().begin(), lists_.all().end(),
                       [&](const auto& list) { return list.running && list.event == event; });
}

void Sampler::start(std::uint64_t now_ns) {
    started_ns_ = now_ns;
    timers_.clear();
    for (const a2l::Event& event : properties_.events)
        if (used(event.number))
            timers_.push_back({event.number, cycle_of(event), now_ns});
    signals_.clear();
    // Two signals may share an address, and a list have a signal in two entries: it counts once.
    for (const DaqList& list : lists_.all()) {
        auto& odts = signals_.emplace_back();
        std::set<const a2l::Signal*> named;
        for (const auto& odt : list.odts) {
            odts.push_back(signals_in(odt));
            std::erase_if(odts.back(),
                          [&](const auto& whole) { return !named.insert(whole.signal).second; });
        }
    }
}

// What the entries bring, with the places behind identification and timestamp. A signal may lie in
// several entries that follow each other, none of which holds it.
std::vector<MemoryView::Whole> Sampler::signals_in(const std::vector<MemoryView>& odt) const {
    std::vector<MemoryView::Whole> all;
    std::optional<MemoryView> open; // entries of which no signal is whole yet
    std::size_t begin = 0;          // of these
    std::size_t at = 0;
    for (const MemoryView& entry : odt) {
        const auto longer = open ? memory_.joined(*open, entry) : std::nullopt;
        if (!longer)
            begin = at;
        open = longer.value_or(entry);
        for (const auto& [signal, inside] : open->signals)
            all.push_back({signal, begin + inside});
        if (!open->signals.empty())
            open.reset();
        at += entry.size;
    }
    return all;
}

std::uint64_t Sampler::next_due() const {
    std::uint64_t next = never;
    for (const Timer& timer : timers_)
        next = std::min(next, timer.due_ns);
    return next;
}

std::uint64_t Sampler::advance(std::uint64_t now_ns) {
    std::erase_if(timers_, [&](const Timer& timer) { return !used(timer.event); });
    constexpr int most_times =
        10'000; // the rest waits for the next call, so that commands are heard
    std::uint64_t next = next_due();
    for (int times = 0; next <= now_ns && next != never && times < most_times; ++times) {
        sample_all(next);
        next = next_due();
    }
    return next;
}

void Sampler::sample_all(std::uint64_t due_ns) {
    for (Timer& timer : timers_) {
        if (timer.due_ns != due_ns)
            continue;
        for (std::size_t list = 0; list < lists_.all().size(); ++list)
            if (lists_.all()[list].running && lists_.all()[list].event == timer.event)
                sample(list, due_ns);
        timer.due_ns += timer.cycle_ns;
    }
    outbox_.flush();
    if (jumps_ && ++times_ % datagrams_per_fault == 0)
        clock_.jump();
}

void Sampler::sample(std::size_t list, std::uint64_t due_ns) {
    const DaqList& own = lists_.all()[list];
    for (std::size_t odt = 0; odt < own.odts.size(); ++odt) {
        packet_.clear();
        values_.clear();
        append_identification(list, odt);
        if (odt == 0 && own.stamped())
            append_number(packet_, clock_.ticks(due_ns), properties_.timestamp.size,
                          properties_.order);
        const std::size_t begin = packet_.size();
        for (const MemoryView& entry : own.odts[odt])
            memory_.read(entry, due_ns - started_ns_, packet_);
        for (const auto& [signal, at] : signals_[list][odt])
            values_.push_back(
                {signal, physical_value(*signal, std::span(packet_).subspan(
                                                     begin + at, a2l::size_of(signal->type)))});
        append_padding();
        outbox_.add(packet_, values_);
    }
}

void Sampler::append_identification(std::size_t list, std::size_t odt) {
    constexpr std::uint8_t fill = 0xAA; // a master is not to look at it
    const IdentificationField form = properties_.identification;
    packet_.push_back(static_cast<std::uint8_t>(lists_.first_pid(list) + odt));
    if (form == IdentificationField::relative_word_aligned)
        packet_.push_back(fill);
    if (form != IdentificationField::absolute)
        append_number(packet_, properties_.minDaq + list,
                      form == IdentificationField::relative_byte ? 1 : 2, properties_.order);
}

void Sampler::append_padding() {
    constexpr std::uint8_t remains = 0xEE; // of anything
    while (packet_.size() % properties_.packetAlignment != 0)
        packet_.push_back(remains);
}

} // namespace simulated_slave
