#include "slave.h"

#include "refusal.h"
#include "sampler.h"
#include "xcp/message.h"

#include <algorithm>
#include <array>
#include <optional>
#include <tuple>
#include <utility>

namespace simulated_slave {

namespace {

using xcp::Acknowledgement;
using xcp::Error;
using Bytes = std::vector<std::uint8_t>;

// The packet of a datagram that holds one message and nothing else.
std::optional<xcp::Message> only_message(std::span<const std::uint8_t> datagram) {
    xcp::MessageWalk walk(datagram);
    xcp::Message message{};
    if (!walk.next(message) || walk.left() != 0 || message.packet.empty())
        return {};
    return message;
}

template <class Command>
Command exact(std::span<const std::uint8_t> packet, xcp::ByteOrder order) {
    Command command;
    xcp::PacketReader reader(packet.subspan(1), order);
    command.each(reader);
    refuse_if(!reader.complete() || reader.left() != 0, Error::cmd_syntax);
    return command;
}

Bytes bytes_of(const std::string& text) {
    return {text.begin(), text.end()};
}

// In the greatest resolution in which the cycle is at most 255 units.
std::pair<std::uint8_t, std::uint8_t> cycle_and_unit(std::uint64_t cycle_ns) {
    constexpr std::uint8_t second = 9;
    std::uint8_t unit = 0;
    for (; cycle_ns > 255 && unit < second; cycle_ns /= 10)
        ++unit;
    return {static_cast<std::uint8_t>(std::min<std::uint64_t>(cycle_ns, 255)), unit};
}

std::uint8_t unit_code(std::uint64_t unit_ps) {
    unsigned code = 0;
    while (xcp::unit_ps(code) != 0 && xcp::unit_ps(code) != unit_ps)
        ++code;
    return static_cast<std::uint8_t>(code);
}

} // namespace

bool is_connect(std::span<const std::uint8_t> datagram) {
    const auto message = only_message(datagram);
    return message && message->packet.size() == 2 && message->packet[0] == xcp::Connect::code &&
           message->packet[1] == xcp::Connect{}.mode;
}

struct Slave::State {
    State(const a2l::File& file, const std::set<Fault>& faults, Send send, std::string fileName)
        : properties(properties_of(file.xcp())), memory(signals_of(file)),
          name(std::move(fileName)), clock(properties.timestamp), outbox(std::move(send)),
          lists(properties, memory),
          sampler(properties, memory, lists, clock, outbox, faults.contains(Fault::jump)) {}

    void take(std::span<const std::uint8_t> datagram);
    std::optional<Bytes> answer_to(std::span<const std::uint8_t> packet);

    xcp::Connect::Answer execute(const xcp::Connect& command);
    Acknowledgement execute(const xcp::Disconnect& command);
    xcp::GetStatus::Answer execute(const xcp::GetStatus& command) const;
    Acknowledgement execute(const xcp::Synch& command) const;
    xcp::GetCommModeInfo::Answer execute(const xcp::GetCommModeInfo& command) const;
    xcp::GetId::Answer execute(const xcp::GetId& command);
    xcp::Upload::Answer execute(const xcp::Upload& command);
    xcp::GetDaqProcessorInfo::Answer execute(const xcp::GetDaqProcessorInfo& command) const;
    xcp::GetDaqResolutionInfo::Answer execute(const xcp::GetDaqResolutionInfo& command) const;
    xcp::GetDaqEventInfo::Answer execute(const xcp::GetDaqEventInfo& command);
    xcp::GetDaqClock::Answer execute(const xcp::GetDaqClock& command) const;
    Acknowledgement execute(const xcp::StartStopSynch& command);

    // The other commands are about lists, and the lists' own.
    template <class Command>
    Bytes run(std::span<const std::uint8_t> packet) {
        const auto command = exact<Command>(packet, properties.order);
        if constexpr (requires { execute(command); })
            return xcp::answer_packet(execute(command), properties.order);
        else
            return xcp::answer_packet(lists.execute(command), properties.order);
    }
    using Handler = Bytes (State::*)(std::span<const std::uint8_t>);
    template <class Command>
    static constexpr Handler handler_of() {
        if constexpr (
            requires(State & state, Command command) { state.execute(command); } ||
            requires(DaqLists & own, Command command) { own.execute(command); })
            return &State::run<Command>;
        return nullptr;
    }
    static const std::array<Handler, 256> handlers; // by code; null: unknown

    const Properties properties;
    const SignalMemory memory;
    const std::string name;
    Clock clock;
    Outbox outbox;
    DaqLists lists;
    Sampler sampler;

    bool connected = false;
    std::uint16_t ctr = 0; // of the master's last message
    std::uint64_t violations = 0;
    std::uint64_t now_ns = 0;
    Bytes uploadable; // from the memory pointer on
};

const std::array<Slave::State::Handler, 256> Slave::State::handlers = std::apply(
    [](auto... command) {
        std::array<Handler, 256> table{};
        ((table[decltype(command)::code] = handler_of<decltype(command)>()), ...);
        return table;
    },
    xcp::AllCommands{});

// ---- datagrams ----

void Slave::State::take(std::span<const std::uint8_t> datagram) {
    const auto message = only_message(datagram);
    if (!message) {
        ++violations;
        return;
    }
    const bool connects = message->packet[0] == xcp::Connect::code;
    if (!connects && !connected)
        return;
    // A gap is a command that was lost on the way; one that comes again, or too late, is no
    // command.
    if (!connects && static_cast<std::int16_t>(message->ctr - ctr) <= 0) {
        ++violations;
        return;
    }
    ctr = message->ctr;
    if (const auto answer = answer_to(message->packet))
        outbox.answer(*answer);
}

// A CONNECT that is wrong has none.
std::optional<Bytes> Slave::State::answer_to(std::span<const std::uint8_t> packet) {
    try {
        const Handler handler = handlers[packet[0]];
        refuse_if(handler == nullptr, Error::cmd_unknown);
        return (this->*handler)(packet);
    } catch (const Refusal& refusal) {
        if (packet[0] == xcp::Connect::code)
            return {};
        return Bytes{xcp::error_pid, static_cast<std::uint8_t>(refusal.error)};
    }
}

// ---- the session ----

xcp::Connect::Answer Slave::State::execute(const xcp::Connect& command) {
    constexpr std::uint8_t more_in_comm_mode_info = 0x80;
    refuse_if(command.mode != 0, Error::out_of_range);
    lists.clear();
    uploadable.clear();
    connected = true;
    xcp::Connect::Answer answer;
    answer.resources = xcp::Connect::Answer::daq_resource;
    answer.communicationMode = more_in_comm_mode_info;
    if (properties.order == xcp::ByteOrder::big)
        answer.communicationMode |= xcp::Connect::Answer::big_endian;
    answer.maxCto = properties.maxCto;
    answer.maxDto = properties.maxDto;
    return answer;
}

Acknowledgement Slave::State::execute(const xcp::Disconnect& /*command*/) {
    lists.clear();
    connected = false;
    return {};
}

xcp::GetStatus::Answer Slave::State::execute(const xcp::GetStatus& /*command*/) const {
    xcp::GetStatus::Answer answer;
    answer.session = lists.running() ? xcp::GetStatus::Answer::daq_running : std::uint8_t{0};
    return answer;
}

Acknowledgement Slave::State::execute(const xcp::Synch& /*command*/) const {
    throw Refusal{Error::cmd_synch};
}

xcp::GetCommModeInfo::Answer Slave::State::execute(const xcp::GetCommModeInfo& /*command*/) const {
    xcp::GetCommModeInfo::Answer answer;
    answer.driverVersion = 0x10; // 1.0
    return answer;
}

xcp::GetId::Answer Slave::State::execute(const xcp::GetId& command) {
    constexpr std::uint8_t a2l_name = 1;
    constexpr std::size_t fields_before = 8;
    refuse_if(command.type != a2l_name, Error::out_of_range);
    xcp::GetId::Answer answer;
    answer.length = static_cast<std::uint32_t>(name.size());
    if (fields_before + name.size() <= properties.maxCto) {
        answer.mode = xcp::GetId::Answer::in_answer;
        answer.text = bytes_of(name);
    } else {
        uploadable = bytes_of(name);
    }
    return answer;
}

xcp::Upload::Answer Slave::State::execute(const xcp::Upload& command) {
    refuse_if(command.count == 0 || command.count >= properties.maxCto, Error::out_of_range);
    refuse_if(command.count > uploadable.size(), Error::access_denied);
    const auto end = uploadable.begin() + command.count;
    xcp::Upload::Answer answer{{uploadable.begin(), end}};
    uploadable.erase(uploadable.begin(), end);
    return answer;
}

// ---- what the slave can ----

xcp::GetDaqProcessorInfo::Answer
Slave::State::execute(const xcp::GetDaqProcessorInfo& /*command*/) const {
    using Answer = xcp::GetDaqProcessorInfo::Answer;
    Answer answer;
    answer.properties = Answer::dynamic;
    if (properties.timestamp.size != 0)
        answer.properties |= Answer::timestamps;
    answer.maxDaq = static_cast<std::uint16_t>(properties.minDaq + lists.all().size());
    answer.minDaq = properties.minDaq;
    for (const a2l::Event& event : properties.events)
        answer.maxEvent = std::max<std::uint16_t>(answer.maxEvent, event.number + 1);
    answer.key = static_cast<std::uint8_t>(static_cast<unsigned>(properties.identification) << 6);
    return answer;
}

xcp::GetDaqResolutionInfo::Answer
Slave::State::execute(const xcp::GetDaqResolutionInfo& /*command*/) const {
    const a2l::Timestamp& timestamp = properties.timestamp;
    xcp::GetDaqResolutionInfo::Answer answer;
    answer.entryGranularity = properties.granularity;
    answer.maxEntrySize = properties.maxEntrySize;
    answer.timestampMode = static_cast<std::uint8_t>(timestamp.size | (timestamp.fixed ? 8U : 0U) |
                                                     unsigned{unit_code(timestamp.unit_ps)} << 4);
    answer.timestampTicks = timestamp.ticks;
    return answer;
}

xcp::GetDaqEventInfo::Answer Slave::State::execute(const xcp::GetDaqEventInfo& command) {
    constexpr std::uint8_t of_stimulation = 0x08;
    constexpr std::uint8_t consistent = 0x80; // all lists of the event together
    const a2l::Event* const event = properties.find_event(command.event);
    refuse_if(event == nullptr, Error::out_of_range);
    uploadable = bytes_of(event->name.substr(0, 255));
    xcp::GetDaqEventInfo::Answer answer;
    answer.properties =
        consistent | (event->daq ? xcp::GetDaqEventInfo::Answer::daq : of_stimulation);
    answer.maxLists = 255; // no limit
    answer.nameLength = static_cast<std::uint8_t>(uploadable.size());
    std::tie(answer.cycle, answer.unit) = cycle_and_unit(event->cycle_ns);
    return answer;
}

xcp::GetDaqClock::Answer Slave::State::execute(const xcp::GetDaqClock& /*command*/) const {
    constexpr std::uint8_t four_bytes = 0x01;
    refuse_if(properties.timestamp.size == 0, Error::cmd_unknown);
    xcp::GetDaqClock::Answer answer;
    answer.format = four_bytes;
    answer.clock = static_cast<std::uint32_t>(clock.ticks(now_ns));
    return answer;
}

Acknowledgement Slave::State::execute(const xcp::StartStopSynch& command) {
    const bool wasRunning = lists.running();
    lists.execute(command);
    if (!wasRunning && lists.running())
        sampler.start(now_ns);
    return {};
}

// ---- the slave ----

Slave::Slave(const a2l::File& file, const std::set<Fault>& faults, Send send, std::string name)
    : state_(std::make_unique<State>(file, faults, std::move(send), std::move(name))) {}

Slave::~Slave() = default;

void Slave::take(std::span<const std::uint8_t> datagram, std::uint64_t now_ns) {
    advance(now_ns);
    state_->take(datagram);
}

std::uint64_t Slave::advance(std::uint64_t now_ns) {
    state_->now_ns = now_ns;
    return state_->sampler.advance(now_ns);
}

void Slave::switch_on(std::uint64_t now_ns) {
    state_->connected = false;
    state_->lists.clear();
    state_->outbox.begin_anew();
    state_->clock.switch_on(now_ns);
}

bool Slave::connected() const {
    return state_->connected;
}

bool Slave::running() const {
    return state_->lists.running();
}

std::size_t Slave::signals() const {
    return state_->memory.signals();
}

std::uint64_t Slave::violations() const {
    return state_->violations;
}

} // namespace simulated_slave
