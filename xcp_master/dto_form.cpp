#include "dto_form.h"

#include "session_error.h"
#include "xcp/message.h"

#include <algorithm>

namespace xcp_master {

namespace {

using xcp::ByteOrder;

constexpr std::uint8_t overload_bit = 0x80;
constexpr std::uint8_t no_list = 0xFF;  // more than the receiver has
constexpr std::size_t most_padding = 7; // bytes behind the entries, up to a multiple of 8

std::uint64_t number_of(std::span<const std::uint8_t> bytes, ByteOrder order) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        number = number << 8 | bytes[order == ByteOrder::big ? i : bytes.size() - 1 - i];
    return number;
}

bool is_own(const DaqProperties& slave) {
    return slave.identificationField == IdentificationField::relative_byte &&
           slave.order == ByteOrder::little && slave.minDaq == 0 && !slave.overloadInPid &&
           slave.timestampSize == xcp::timestamp_size && slave.unit_ps == 1000 &&
           slave.ticksPerUnit == 1;
}

// 4 bytes of whole nanoseconds turn with the receiver's, or a whole number of its turns later.
std::uint64_t simple_tick_ns(const DaqProperties& slave) {
    const std::uint64_t nanosecond = std::uint64_t{1000} * slave.ticksPerUnit;
    const bool simple =
        slave.timestampSize == xcp::timestamp_size && slave.unit_ps % nanosecond == 0;
    return simple ? slave.unit_ps / nanosecond : 0;
}

std::size_t size_of(const Odt& odt) {
    std::size_t size = 0;
    for (const MeasuredValue& value : odt)
        size += value.size;
    return size;
}

} // namespace

DtoForm::DtoForm(const DaqProperties& slave, const DaqPlan& plan,
                 const std::vector<std::uint8_t>& firstPids)
    : slave_(slave), limits_(limits_of(slave)), own_(is_own(slave)),
      tick_ns_(simple_tick_ns(slave)) {
    if (tick_ns_ == 0 && slave.timestampSize > 0)
        clock_.emplace(slave);
    for (std::size_t list = 0; list < plan.lists.size(); ++list) {
        auto& lengths = lengths_.emplace_back();
        for (const Odt& odt : plan.lists[list].odts) {
            const std::size_t number = lengths.size();
            lengths.push_back(size_of(odt));
            if (slave.identificationField != IdentificationField::absolute)
                continue;
            const std::size_t pid = firstPids.at(list) + number;
            if (pid > xcp::last_daq_pid || absolute_[pid])
                throw SessionError("list " + plan.lists[list].name + ": its ODT " +
                                   std::to_string(number) + " has the number " +
                                   std::to_string(pid) + ", which is not free");
            absolute_[pid] = Place{static_cast<std::uint8_t>(list),
                                   static_cast<std::uint8_t>(number), lengths.back()};
        }
    }
}

std::span<const std::uint8_t> DtoForm::take(std::span<const std::uint8_t> payload, Time arrival) {
    if (own_ && needs_nothing(payload))
        return payload;
    converted_.clear();
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);) {
        const auto packet = message.is_daq() ? read(message.packet, arrival) : std::nullopt;
        if (packet)
            append(message.ctr, *packet);
        else
            append(message.ctr, message.packet);
    }
    const auto rest = payload.last(messages.left()); // a message that is cut off stays one
    converted_.insert(converted_.end(), rest.begin(), rest.end());
    return converted_;
}

bool DtoForm::needs_nothing(std::span<const std::uint8_t> payload) const {
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);)
        if (message.is_daq() && !is_exact(message.packet))
            return false;
    return true;
}

bool DtoForm::is_exact(std::span<const std::uint8_t> packet) const {
    if (packet.size() < xcp::identification_size || packet[1] >= lengths_.size() ||
        packet[0] >= lengths_[packet[1]].size())
        return true; // no packet of the plan: nothing is known of it
    const std::size_t stamp = packet[0] == 0 ? limits_.timestampSize : 0;
    const std::size_t exact = xcp::identification_size + stamp + lengths_[packet[1]][packet[0]];
    return packet.size() <= exact || packet.size() > exact + most_padding;
}

// Empty for a packet that is too short for its own beginning.
std::optional<DtoForm::Packet> DtoForm::read(std::span<const std::uint8_t> packet, Time arrival) {
    if (packet.size() < limits_.identificationSize)
        return {};
    std::uint8_t odt = packet[0];
    if (slave_.overloadInPid && (odt & overload_bit) != 0) {
        overloads_.store(overloads_ + 1, std::memory_order_relaxed);
        odt = static_cast<std::uint8_t>(odt & ~overload_bit);
    }
    std::uint8_t list = list_of(packet);
    std::optional<std::size_t> length;
    if (slave_.identificationField == IdentificationField::absolute) {
        if (const auto& place = absolute_[odt]) {
            list = place->list;
            length = place->length;
            odt = place->odt;
        }
    } else if (list < lengths_.size() && odt < lengths_[list].size()) {
        length = lengths_[list][odt];
    }
    Packet result{odt, list, {}, packet.subspan(limits_.identificationSize)};
    if (!length)
        return result;
    if (odt == 0 && result.entries.size() >= limits_.timestampSize) {
        const auto stamp = result.entries.first(limits_.timestampSize);
        result.timestamp_ns = time_of(list, stamp, arrival);
        result.entries = result.entries.subspan(limits_.timestampSize);
    }
    if (result.entries.size() > *length && result.entries.size() <= *length + most_padding)
        result.entries = result.entries.first(*length);
    return result;
}

std::uint32_t DtoForm::time_of(std::uint8_t list, std::span<const std::uint8_t> stamp,
                               Time arrival) {
    const std::uint64_t ticks = number_of(stamp, slave_.order);
    const std::uint64_t time_ns = stamp.empty() ? static_cast<std::uint64_t>(arrival.count())
                                  : clock_      ? clock_->time_ns(list, ticks, arrival)
                                                : ticks * tick_ns_;
    return static_cast<std::uint32_t>(time_ns);
}

std::uint8_t DtoForm::list_of(std::span<const std::uint8_t> packet) const {
    std::uint64_t number = 0;
    switch (slave_.identificationField) {
    case IdentificationField::absolute:
        return no_list;
    case IdentificationField::relative_byte:
        number = packet[1];
        break;
    case IdentificationField::relative_word:
        number = number_of(packet.subspan(1, 2), slave_.order);
        break;
    case IdentificationField::aligned:
        number = number_of(packet.subspan(2, 2), slave_.order);
        break;
    }
    const std::uint64_t list = number - slave_.minDaq; // far above no_list when it is below
    return static_cast<std::uint8_t>(std::min<std::uint64_t>(list, no_list));
}

void DtoForm::append(std::uint16_t ctr, const Packet& packet) {
    const std::size_t stamp = packet.timestamp_ns ? xcp::timestamp_size : 0;
    const std::size_t length = xcp::identification_size + stamp + packet.entries.size();
    const std::size_t begin = converted_.size();
    converted_.resize(begin + xcp::message_header_size + length);
    std::uint8_t* to = converted_.data() + begin;
    const auto put = [&to](std::size_t byte) { *to++ = static_cast<std::uint8_t>(byte); };
    put(length);
    put(length >> 8);
    put(ctr);
    put(ctr >> 8);
    put(packet.odt);
    put(packet.list);
    for (std::size_t i = 0; i < stamp; ++i)
        put(*packet.timestamp_ns >> 8 * i);
    std::copy(packet.entries.begin(), packet.entries.end(), to);
}

void DtoForm::append(std::uint16_t ctr, std::span<const std::uint8_t> packet) {
    xcp::append_message(converted_, ctr, packet);
}

} // namespace xcp_master
