#include "slave_properties.h"

#include <algorithm>

namespace xcp_master {

namespace {

using xcp::ByteOrder;
using xcp::Error;

constexpr const char* form_names[] = {"absolute ODT number", "ODT byte, DAQ byte",
                                      "ODT byte, DAQ word", "ODT byte, fill byte, DAQ word"};

std::string bytes_text(std::size_t bytes) {
    return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
}

// "10 us".
std::string duration_text(std::uint64_t picoseconds) {
    constexpr const char* units[] = {"ps", "ns", "us", "ms", "s"};
    std::size_t unit = 0;
    for (; unit + 1 < std::size(units) && picoseconds >= 1000 && picoseconds % 1000 == 0; ++unit)
        picoseconds /= 1000;
    return std::to_string(picoseconds) + " " + units[unit];
}

std::string timestamp_text(const DaqProperties& properties) {
    if (properties.timestampSize == 0)
        return "none";
    const std::string unit = duration_text(properties.unit_ps);
    return bytes_text(properties.timestampSize) +
           (properties.ticksPerUnit == 1
                ? " in units of " + unit
                : ", " + std::to_string(properties.ticksPerUnit) + " ticks in " + unit);
}

std::string quoted(const std::string& name) {
    return "\"" + name + "\"";
}

// ---- questions ----

// Empty when the slave does not have the command.
template <class Command>
std::optional<typename Command::Answer> ask_if_known(CommandChannel& channel,
                                                     const Command& command) {
    try {
        return channel.ask(command);
    } catch (const Refused& refused) {
        if (refused.is(Error::cmd_unknown) || refused.is(Error::subcmd_unknown))
            return {};
        throw;
    }
}

std::string upload_text(CommandChannel& channel, std::size_t length, std::size_t maxCto) {
    std::string text;
    while (text.size() < length) {
        const std::size_t most = std::min<std::size_t>(maxCto - 1, 255);
        xcp::Upload upload;
        upload.count = static_cast<std::uint8_t>(std::min(length - text.size(), most));
        // The slave's pointer moves on with each: after a lost answer it is to be set again.
        const auto data = channel.request(upload).data;
        if (data.size() < upload.count)
            break;
        text.append(data.begin(), data.begin() + upload.count);
    }
    return text;
}

// Names are shown, and nothing depends on them: a slave that has none may refuse in any way.
std::string ask_id(CommandChannel& channel, std::size_t maxCto) {
    constexpr std::size_t longest = 255;
    try {
        return channel.again_when_lost([&]() -> std::string {
            const auto answer = channel.request(xcp::GetId{});
            const std::size_t length = std::min<std::size_t>(answer.length, longest);
            if ((answer.mode & answer.in_answer) == 0)
                return upload_text(channel, length, maxCto);
            const std::size_t there = std::min(length, answer.text.size());
            return {answer.text.begin(), answer.text.begin() + static_cast<std::ptrdiff_t>(there)};
        });
    } catch (const Refused&) {
        return "";
    } catch (const BadAnswer&) {
        return "";
    }
}

// Empty when the slave does not give it.
std::string upload_name(CommandChannel& channel, std::size_t length, std::size_t maxCto) {
    try {
        return upload_text(channel, length, maxCto);
    } catch (const Refused&) {
        return "";
    }
}

// Empty when the slave does not tell about its events.
std::optional<EventChannel> ask_event(CommandChannel& channel, std::uint16_t number,
                                      std::size_t maxCto) {
    return channel.again_when_lost([&]() -> std::optional<EventChannel> {
        const auto info = ask_if_known(channel, xcp::GetDaqEventInfo{number});
        if (!info)
            return {};
        if ((info->properties & info->daq) == 0)
            throw Unsuitable("event channel " + std::to_string(number) + " does no DAQ");
        return EventChannel{number, upload_name(channel, info->nameLength, maxCto),
                            info->cycle * xcp::unit_ps(info->unit) / 1000};
    });
}

// What may change while a slave is being switched on is no reason to give it up.
void check_resources(CommandChannel& channel, const xcp::Connect::Answer& connected) {
    constexpr int least_max_cto = 8;
    if (connected.maxCto < least_max_cto)
        throw Unsuitable("the slave's MAX_CTO is " + std::to_string(connected.maxCto) +
                         ", below the standard's 8 bytes");
    if ((connected.resources & xcp::Connect::Answer::daq_resource) == 0)
        throw SessionError("the slave does no DAQ (resources " +
                           std::to_string(connected.resources) + ")");
    const auto status = channel.ask(xcp::GetStatus{});
    if ((status.protection & xcp::GetStatus::Answer::daq_protected) != 0)
        throw SessionError("the slave's DAQ is locked by seed and key");
}

// Takes what the slave answers, or leaves what the A2L file says.
template <class Command>
void ask_part(CommandChannel& channel, bool stated, SlaveProperties& slave) {
    const std::string name = Command::name;
    if (const auto answer = ask_if_known(channel, Command{}))
        take_answer(slave, *answer);
    else if (stated)
        slave.remarks.push_back("the slave does not have " + name + ": as the A2L file says");
    else
        throw Unsuitable("the slave does not have " + name +
                         ", and the A2L file no block DAQ in its IF_DATA");
}

void remark_contradictions(const EventChannel& stated, const EventChannel& answered,
                           SlaveProperties& slave) {
    const std::string event = "event channel " + std::to_string(stated.number);
    if (answered.cycle_ns != stated.cycle_ns)
        slave.remarks.push_back(event + ": the slave says every " +
                                duration_text(answered.cycle_ns * 1000) + ", the A2L file " +
                                duration_text(stated.cycle_ns * 1000));
    if (!answered.name.empty() && answered.name != stated.name)
        slave.remarks.push_back(event + ": the slave says " + quoted(answered.name) +
                                ", the A2L file " + quoted(stated.name));
}

} // namespace

void take_answer(DaqProperties& to, const xcp::Connect::Answer& answer) {
    to.maxDto = answer.maxDto;
    to.order = answer.order();
    to.addressGranularity =
        std::size_t{1} << ((answer.communicationMode & xcp::Connect::Answer::granularity) >> 1);
}

void take_answer(DaqProperties& to, const xcp::GetDaqProcessorInfo::Answer& answer) {
    to.dynamic = (answer.properties & answer.dynamic) != 0;
    to.identificationField = static_cast<IdentificationField>(answer.identification_field());
    to.minDaq = answer.minDaq;
    to.overloadInPid = (answer.properties & answer.overload_in_pid) != 0;
}

void take_answer(DaqProperties& to, const xcp::GetDaqResolutionInfo::Answer& answer) {
    to.entryGranularity = std::max<std::size_t>(answer.entryGranularity, 1);
    to.maxEntrySize = answer.maxEntrySize;
    to.timestampSize = answer.timestamp_size();
    to.unit_ps = xcp::unit_ps(answer.timestamp_unit());
    to.ticksPerUnit = answer.timestampTicks;
}

void remark_contradictions(const StatedProperties& stated, SlaveProperties& slave) {
    DaqProperties expected = stated.daq.value_or(slave);
    expected.maxDto = stated.maxDto.value_or(slave.maxDto);
    expected.order = stated.order.value_or(slave.order);
    expected.addressGranularity = stated.addressGranularity.value_or(slave.addressGranularity);
    if (expected.maxEntrySize == 0)
        expected.maxEntrySize = slave.maxEntrySize;
    const auto here = in_words(slave);
    const auto there = in_words(expected);
    for (std::size_t i = 0; i < here.size(); ++i)
        if (here[i].value != there[i].value)
            slave.remarks.push_back(here[i].name + ": the slave says " + here[i].value +
                                    ", the A2L file " + there[i].value);
}

SlaveProperties ask_properties(CommandChannel& channel, const xcp::Connect::Answer& connected,
                               const StatedProperties& stated) {
    check_resources(channel, connected);
    SlaveProperties slave;
    static_cast<DaqProperties&>(slave) = stated.daq.value_or(DaqProperties{});
    slave.maxCto = connected.maxCto;
    take_answer(slave, connected);
    slave.id = ask_id(channel, slave.maxCto);
    ask_part<xcp::GetDaqProcessorInfo>(channel, stated.daq.has_value(), slave);
    ask_part<xcp::GetDaqResolutionInfo>(channel, stated.daq.has_value(), slave);

    remark_contradictions(stated, slave);
    return slave;
}

void ask_events(CommandChannel& channel, const std::vector<WantedList>& lists,
                const StatedProperties& stated, SlaveProperties& slave) {
    for (const WantedList& list : lists)
        try {
            auto event = ask_event(channel, list.event, slave.maxCto);
            const auto expected =
                std::find_if(stated.events.begin(), stated.events.end(),
                             [&](const EventChannel& each) { return each.number == list.event; });
            if (event && expected != stated.events.end()) {
                remark_contradictions(*expected, *event, slave);
                if (event->name.empty())
                    event->name = expected->name;
            }
            slave.events.push_back(event ? *event
                                   : expected != stated.events.end()
                                       ? *expected
                                       : EventChannel{list.event, "", 0});
        } catch (const Refused& refused) {
            if (refused.is(Error::out_of_range))
                throw Unsuitable("the slave has no event channel " + std::to_string(list.event) +
                                 " of list " + list.name);
            throw;
        }
}

std::vector<PropertyText> in_words(const DaqProperties& properties) {
    return {
        {"MAX_DTO", bytes_text(properties.maxDto)},
        {"byte order", properties.order == ByteOrder::little ? "little-endian" : "big-endian"},
        {"address granularity", bytes_text(properties.addressGranularity)},
        {"DAQ lists", properties.dynamic ? "dynamic" : "static"},
        {"identification field",
         form_names[static_cast<std::size_t>(properties.identificationField)]},
        {"first DAQ list", std::to_string(properties.minDaq)},
        {"overload",
         properties.overloadInPid ? "told in bit 7 of ODT numbers" : "not told in packets"},
        {"granularity of ODT entries", bytes_text(properties.entryGranularity)},
        {"largest ODT entry", bytes_text(properties.maxEntrySize)},
        {"timestamp", timestamp_text(properties)},
    };
}

void check_form(const DaqProperties& properties) {
    const auto refuse_unless = [&](bool received, const char* name, const char* what) {
        for (const PropertyText& each : in_words(properties))
            if (!received && each.name == name)
                throw Unsuitable("the slave's " + each.name + " is " + each.value + ", only " +
                                 what + " can be received");
    };
    const bool turns = properties.timestampSize <= 2 || properties.timestampSize == 4;
    const bool counts = properties.ticksPerUnit > 0 && properties.unit_ps > 0;
    refuse_unless(properties.addressGranularity == 1, "address granularity", "1 byte");
    refuse_unless(properties.dynamic, "DAQ lists", "dynamic");
    refuse_unless(properties.timestampSize == 0 || (turns && counts), "timestamp",
                  "1, 2 or 4 bytes of ticks, or none,");
}

DaqLimits limits_of(const DaqProperties& properties) {
    constexpr std::size_t identification_sizes[] = {1, 2, 3, 4};
    DaqLimits limits;
    limits.identificationSize =
        identification_sizes[static_cast<std::size_t>(properties.identificationField)];
    if (properties.overloadInPid)
        limits.maxOdts = 0x80;
    limits.maxDto = properties.maxDto;
    limits.timestampSize = properties.timestampSize;
    limits.maxEntrySize = properties.maxEntrySize;
    limits.entryGranularity = properties.entryGranularity;
    return limits;
}

} // namespace xcp_master
