#include "mf4_recorder.h"

#include "io/file_error.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

namespace task {

using halmor_standin::VariableKind;
using halmor_standin::VariableStore;
using io::FileError;

namespace {

constexpr std::size_t ring_size = 1'048'576; // values; a second or more at the link's rate
constexpr std::size_t block_size = 262'144;  // bytes of one group's records
constexpr std::chrono::milliseconds longest_delay{500}; // until what came is in the file

std::int64_t now() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return time.tv_sec * second_ns + time.tv_nsec;
}

MdfGroup mdf_group(const RecordedList& list) {
    MdfGroup group{list.name, list.trigger, {}, sizeof(double), 0};
    for (const RecordedVariable& each : list.variables) {
        const bool isInteger = each.variable->kind() == VariableKind::integer;
        const std::uint32_t bytes = isInteger ? sizeof(std::int32_t) : sizeof(double);
        group.channels.push_back({each.variable->name(), each.unit,
                                  isInteger ? mdf::NumberType::integer : mdf::NumberType::real,
                                  group.dataBytes, bytes});
        group.dataBytes += bytes;
    }
    group.invalidationBytes = static_cast<std::uint32_t>((group.channels.size() + 7) / 8);
    return group;
}

std::vector<MdfGroup> mdf_groups(const std::vector<RecordedList>& lists) {
    std::vector<MdfGroup> groups;
    std::transform(lists.begin(), lists.end(), std::back_inserter(groups), mdf_group);
    return groups;
}

} // namespace

Mf4Recorder::Mf4Recorder(const std::string& path, const std::vector<RecordedList>& lists,
                         NoRoom noRoom, std::function<bool()> urgent)
    : path_(path), start_(now()), layout_(mdf_groups(lists)), columns_(columns_of(lists, layout_)),
      groups_(groups_of(layout_)), file_(path, start_, layout_),
      writer_(ring_size, noRoom, std::move(urgent), *this) {}

std::vector<Mf4Recorder::Column> Mf4Recorder::columns_of(const std::vector<RecordedList>& lists,
                                                         const std::vector<MdfGroup>& layout) {
    std::vector<Column> columns(VariableStore::instance().variables().size());
    for (std::uint32_t group = 0; group < lists.size(); ++group)
        for (std::size_t i = 0; i < lists[group].variables.size(); ++i) {
            const MdfChannel& channel = layout[group].channels[i];
            columns[lists[group].variables[i].variable->number()] = {
                group, channel.offset, layout[group].dataBytes + static_cast<std::uint32_t>(i / 8),
                static_cast<std::uint8_t>(1U << i % 8), channel.type == mdf::NumberType::integer};
        }
    return columns;
}

std::vector<Mf4Recorder::Group> Mf4Recorder::groups_of(const std::vector<MdfGroup>& layout) {
    std::vector<Group> groups;
    for (const MdfGroup& each : layout) {
        mdf::Bytes record(each.record_size());
        for (std::size_t i = 0; i < each.channels.size(); ++i)
            record[each.dataBytes + i / 8] |= static_cast<std::uint8_t>(1U << i % 8);
        groups.push_back({std::move(record), each.dataBytes});
    }
    return groups;
}

void Mf4Recorder::gap(const timespec& from, const timespec& to) {
    if (!writer_.take(gap_items(from, to)))
        ++lost_;
}

std::size_t Mf4Recorder::add(std::span<const RecordedValue> items) {
    for (const RecordedValue& each : items) {
        if (each.column < gap_begin)
            add_value(each);
        else if (each.column == gap_begin)
            gapFrom_ = each.time;
        else
            add_gap_end(each);
    }
    std::size_t ready = 0;
    for (const Group& group : groups_)
        if (group.records.size() >= block_size)
            ready += group.records.size();
    return ready;
}

void Mf4Recorder::add_value(const RecordedValue& item) {
    const Column& column = columns_[item.column];
    if (column.offset == 0)
        return;
    Group& group = groups_[column.group];
    if (group.last == nullptr || item.time != group.lastTime ||
        (group.last[column.invalidationByte] & column.invalidationBit) == 0)
        begin_record(group, item.time);
    group.last[column.invalidationByte] ^= column.invalidationBit;
    if (column.isInteger) {
        const auto value = static_cast<std::int32_t>(item.value);
        std::memcpy(group.last + column.offset, &value, sizeof value);
    } else {
        std::memcpy(group.last + column.offset, &item.value, sizeof item.value);
    }
}

void Mf4Recorder::begin_record(Group& group, std::int64_t time) const {
    const double seconds = static_cast<double>(since_start(time)) / second_ns;
    std::memcpy(group.emptyRecord.data(), &seconds, sizeof seconds);
    group.records.insert(group.records.end(), group.emptyRecord.begin(), group.emptyRecord.end());
    group.last = group.records.data() + group.records.size() - group.emptyRecord.size();
    group.lastTime = time;
    group.leftOut = false;
}

// Nanoseconds. A value that came before the first timestamp has the time 0.
std::int64_t Mf4Recorder::since_start(std::int64_t time) const {
    return time == 0 ? 0 : time - start_;
}

void Mf4Recorder::add_gap_end(const RecordedValue& item) {
    if (file_.error().empty())
        file_.add_gap(since_start(gapFrom_), since_start(item.time));
}

bool Mf4Recorder::Group::last_is_full() const {
    const auto bits = static_cast<std::ptrdiff_t>(emptyRecord.size() - dataBytes);
    return std::all_of(records.end() - bits, records.end(),
                       [](std::uint8_t byte) { return byte == 0; });
}

bool Mf4Recorder::Group::is_due(Clock::time_point now) const {
    return !records.empty() && (records.size() >= block_size || now - written >= longest_delay);
}

void Mf4Recorder::write(bool last) {
    const auto now = Clock::now();
    for (std::size_t number = 0; number < groups_.size(); ++number)
        if (last || groups_[number].is_due(now)) {
            write_records(number, last);
            groups_[number].written = now;
        }
    if (last)
        file_.finalise();
}

// A record that may still be filled goes with the next block.
void Mf4Recorder::write_records(std::size_t number, bool last) {
    Group& group = groups_[number];
    const std::size_t recordSize = group.emptyRecord.size();
    group.leftOut = !last && !group.leftOut && !group.last_is_full();
    const std::size_t size = group.records.size() - (group.leftOut ? recordSize : 0);
    if (size == 0)
        return;
    if (!file_.error().empty() || !file_.add_records(number, std::span(group.records).first(size)))
        unwritten_ += size / recordSize;
    group.records.erase(group.records.begin(),
                        group.records.begin() + static_cast<std::ptrdiff_t>(size));
    group.last = group.leftOut ? group.records.data() : nullptr;
}

void Mf4Recorder::close() {
    writer_.close();
    std::string losses;
    if (!file_.error().empty())
        losses = fmt::format("{} records were not written: {}", unwritten_, file_.error());
    if (lost_ > 0)
        losses += fmt::format("{}{} values were not written: {}", losses.empty() ? "" : "; ", lost_,
                              writer_.cause_of_loss());
    if (!losses.empty())
        throw FileError(path_, losses);
}

} // namespace task
