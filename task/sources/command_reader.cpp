#include "command_reader.h"

#include "xcp/error_codes.h"
#include "xcp/packet_text.h"
#include "xcp_master/session_error.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <type_traits>
#include <utility>

namespace task {

namespace {

using xcp::Acknowledgement;
using xcp_master::SessionError;

constexpr std::size_t most_waiting = 256; // a master that goes on without answers for so long

// The commands whose answers say what a DAQ packet looks like.
constexpr std::pair<std::uint8_t, const char*> form_commands[] = {
    {xcp::Connect::code, xcp::Connect::name},
    {xcp::GetDaqProcessorInfo::code, xcp::GetDaqProcessorInfo::name},
    {xcp::GetDaqResolutionInfo::code, xcp::GetDaqResolutionInfo::name}};

bool starts_or_stops(std::uint8_t code) {
    constexpr std::uint8_t codes[] = {xcp::Connect::code,       xcp::Disconnect::code,
                                      xcp::FreeDaq::code,       xcp::AllocDaq::code,
                                      xcp::ClearDaqList::code,  xcp::StartStopDaqList::code,
                                      xcp::StartStopSynch::code};
    return std::find(std::begin(codes), std::end(codes), code) != std::end(codes);
}

bool is_synch_answer(std::span<const std::uint8_t> packet) {
    return packet.size() >= 2 && packet[0] == xcp::error_pid &&
           packet[1] == static_cast<std::uint8_t>(xcp::Error::cmd_synch);
}

bool ends_session(const xcp::Message& message) {
    constexpr std::uint8_t terminated = 0x07; // EV_SESSION_TERMINATED
    return message.is_event() && message.packet[1] == terminated;
}

a2l::MemoryPlace place_of(const xcp::WriteDaq& entry) {
    return {entry.extension, entry.address, entry.size};
}

} // namespace

CommandReader::CommandReader(const xcp_master::StatedProperties& stated, bool stampsAlways)
    : stated_(stated), stampsAlways_(stampsAlways) {
    static_cast<xcp_master::DaqProperties&>(slave_) =
        stated.daq.value_or(xcp_master::DaqProperties{});
    slave_.maxDto = stated.maxDto.value_or(0);
    slave_.order = stated.order.value_or(slave_.order);
    slave_.addressGranularity = stated.addressGranularity.value_or(1);
    lists_.set_first_dynamic(slave_.minDaq);
}

// ---- commands and answers ----

// What is recorded on several interfaces is there several times.
void CommandReader::take_command(const io::UdpEndpoint& master, std::uint64_t frame,
                                 const xcp::Message& message) {
    if (message.packet.empty() || message.is_daq()) // values for the slave are no command
        return;
    const auto& packet = message.packet;
    if (!waiting_.empty() && waiting_.back().ctr == message.ctr &&
        std::equal(packet.begin(), packet.end(), waiting_.back().packet.begin(),
                   waiting_.back().packet.end()))
        return;
    if (answered_ && !interleaved_)
        waiting_.clear(); // answers that have not come until now will not come
    if (waiting_.size() == most_waiting)
        waiting_.erase(waiting_.begin());
    answered_ = false;
    ++result_.commands;
    waiting_.push_back(
        {master, frame, result_.packets, message.ctr, {packet.begin(), packet.end()}});
}

void CommandReader::take_from_slave(const io::UdpEndpoint& master, std::uint64_t frame,
                                    const xcp::Message& message) {
    if (message.is_daq())
        ++result_.packets;
    else if (ends_session(message))
        stop_all(frame);
    else if (!message.packet.empty() && message.packet[0] >= xcp::error_pid)
        if (const auto command = match(master, message.packet)) {
            const bool taken = message.packet[0] == xcp::response_pid;
            ++(taken ? result_.taken : result_.refused);
            if (!taken)
                return;
            execute(*command, message.packet);
            if (starts_or_stops(command->packet[0]))
                follow_lists(*command, frame);
        }
}

// A master sends its next command when it has the answer to the last one or has given it up. So an
// answer belongs to the last command, unless that has its answer already and one before it has not;
// and SYNCH has an answer of its own. Where commands are interleaved, answers come in their order.
std::optional<CommandReader::Command> CommandReader::match(const io::UdpEndpoint& master,
                                                           std::span<const std::uint8_t> answer) {
    if (is_synch_answer(answer)) {
        waiting_.clear();
        return {};
    }
    const auto fits = [&](const Command& command) {
        return command.master == master && command.packet[0] != xcp::Synch::code;
    };
    auto found = std::find_if(waiting_.begin(), waiting_.end(), fits);
    if (!interleaved_)
        for (auto next = found; next != waiting_.end(); ++next)
            if (fits(*next))
                found = next;
    if (found == waiting_.end())
        return {};
    answered_ = true;
    Command command = std::move(*found);
    waiting_.erase(found);
    return command;
}

void CommandReader::execute(const Command& command, std::span<const std::uint8_t> answer) {
    xcp::with_command(command.packet[0], [&]<class Known>(Known) {
        const auto fields = xcp::read_packet<Known>(command.packet, slave_.order);
        const auto answered = xcp::read_packet<typename Known::Answer>(answer, slave_.order);
        constexpr bool needsAnswer = !std::is_same_v<Known, xcp::StartStopDaqList>;
        if (fields && (answered || !needsAnswer))
            took(*fields, answered.value_or(typename Known::Answer{}));
        else
            ++result_.unread;
    });
}

void CommandReader::took(const xcp::Connect& /*command*/, const xcp::Connect::Answer& answer) {
    xcp_master::take_answer(slave_, answer);
    told_.insert(xcp::Connect::code);
    interleaved_ = false;
    lists_.apply(xcp::StartStopSynch{xcp::StartStopSynch::stop_all});
}

void CommandReader::took(const xcp::Disconnect& /*command*/, const Acknowledgement& /*answer*/) {
    lists_.apply(xcp::StartStopSynch{xcp::StartStopSynch::stop_all});
}

void CommandReader::took(const xcp::GetCommModeInfo& /*command*/,
                         const xcp::GetCommModeInfo::Answer& answer) {
    constexpr std::uint8_t interleaved = 0x02;
    interleaved_ = (answer.optional & interleaved) != 0;
}

void CommandReader::took(const xcp::GetId& /*command*/, const xcp::GetId::Answer& answer) {
    const std::size_t length = std::min<std::size_t>(answer.length, answer.text.size());
    if ((answer.mode & answer.in_answer) != 0)
        slave_.id.assign(answer.text.begin(),
                         answer.text.begin() + static_cast<std::ptrdiff_t>(length));
}

void CommandReader::took(const xcp::GetDaqProcessorInfo& /*command*/,
                         const xcp::GetDaqProcessorInfo::Answer& answer) {
    xcp_master::take_answer(slave_, answer);
    lists_.set_first_dynamic(answer.minDaq);
    told_.insert(xcp::GetDaqProcessorInfo::code);
}

void CommandReader::took(const xcp::GetDaqResolutionInfo& /*command*/,
                         const xcp::GetDaqResolutionInfo::Answer& answer) {
    xcp_master::take_answer(slave_, answer);
    stampsAlways_ = answer.timestamp_fixed();
    told_.insert(xcp::GetDaqResolutionInfo::code);
}

void CommandReader::took(const xcp::WriteDaq& command, const Acknowledgement& /*answer*/) {
    lists_.write(place_of(command));
}

void CommandReader::took(const xcp::WriteDaqMultiple& command, const Acknowledgement& /*answer*/) {
    for (const xcp::WriteDaq& entry : command.entries)
        lists_.write(place_of(entry));
}

void CommandReader::took(const xcp::StartStopDaqList& command,
                         const xcp::StartStopDaqList::Answer& answer) {
    firstPids_[command.daq] = answer.firstPid;
    lists_.apply(command);
}

template <class Other, class Answer>
void CommandReader::took(const Other& command, const Answer& /*answer*/) {
    if constexpr (requires { lists_.apply(command); })
        lists_.apply(command);
}

// ---- sessions ----

CapturedSession* CommandReader::open() {
    return isOpen_ ? &result_.sessions.back() : nullptr;
}

void CommandReader::stop_all(std::uint64_t frame) {
    lists_.apply(xcp::StartStopSynch{xcp::StartStopSynch::stop_all});
    end(frame, result_.packets);
}

// The answer to CONNECT is of the new session already, whose messages may be counted anew.
void CommandReader::follow_lists(const Command& command, std::uint64_t frame) {
    const auto& all = lists_.lists();
    if (std::none_of(all.begin(), all.end(), [](const auto& list) { return list.running; }))
        return end(command.packet[0] == xcp::Connect::code ? frame - 1 : frame, result_.packets);
    auto lists = lists_that_run();
    if (!isOpen_ || result_.setUps[open()->setUp].lists != lists)
        begin(command, std::move(lists));
}

// A list that has been stopped while others run still counts: slaves send what they have sampled.
std::vector<CapturedList> CommandReader::lists_that_run() const {
    std::map<std::uint16_t, CapturedList> lists;
    if (isOpen_)
        for (const CapturedList& list : result_.setUps[result_.sessions.back().setUp].lists)
            lists[list.number] = list;
    for (std::size_t number = 0; number < lists_.lists().size(); ++number)
        if (auto list = list_that_runs(static_cast<std::uint16_t>(number)))
            lists[list->number] = std::move(*list);
    std::vector<CapturedList> sorted;
    sorted.reserve(lists.size());
    for (auto& [number, list] : lists)
        sorted.push_back(std::move(list));
    return sorted;
}

std::optional<CapturedList> CommandReader::list_that_runs(std::uint16_t number) const {
    using Mode = xcp::SetDaqListMode;
    const auto& list = lists_.lists()[number];
    if (!list.running || (list.mode & Mode::stim) != 0)
        return {};
    if ((list.mode & Mode::pid_off) != 0)
        throw SessionError(
            fmt::format("DAQ list {} sends packets without identification (PID off)", number));
    const auto firstPid = firstPids_.find(number);
    CapturedList captured{number, list.event.value_or(0), stampsAlways_ || list.stamped(),
                          firstPid == firstPids_.end() ? std::uint8_t{0} : firstPid->second,
                          list.odts};
    // The slave's own lists need not use all that they have.
    const auto written = [](const a2l::MemoryPlace& entry) { return entry.size != 0; };
    if (number < lists_.first_dynamic()) {
        for (auto& odt : captured.odts)
            while (!odt.empty() && !written(odt.back()))
                odt.pop_back();
        while (!captured.odts.empty() && captured.odts.back().empty())
            captured.odts.pop_back();
    }
    const bool whole =
        std::all_of(captured.odts.begin(), captured.odts.end(), [&](const auto& odt) {
            return !odt.empty() && std::all_of(odt.begin(), odt.end(), written);
        });
    if (!whole) // a command or its answer is missing: nobody knows what lies where
        captured.odts.clear();
    return captured;
}

// The slave may send before it answers.
void CommandReader::begin(const Command& command, std::vector<CapturedList> lists) {
    const bool begins = !isOpen_;
    end(command.frame - 1, command.packets);
    result_.sessions.push_back({set_up_of(std::move(lists)), begins, command.master, command.frame,
                                0, command.packets, 0});
    isOpen_ = true;
}

void CommandReader::end(std::uint64_t frame, std::uint64_t packets) {
    if (CapturedSession* const session = open()) {
        session->lastFrame = frame;
        session->endPacket = packets;
    }
    isOpen_ = false;
}

std::size_t CommandReader::set_up_of(std::vector<CapturedList> lists) {
    auto& setUps = result_.setUps;
    const xcp_master::DaqProperties& form = slave_;
    const auto found = std::find_if(setUps.begin(), setUps.end(), [&](const auto& setUp) {
        return static_cast<const xcp_master::DaqProperties&>(setUp.slave) == form &&
               setUp.lists == lists;
    });
    if (found != setUps.end())
        return static_cast<std::size_t>(found - setUps.begin());
    setUps.push_back({described_slave(), std::move(lists)});
    return setUps.size() - 1;
}

xcp_master::SlaveProperties CommandReader::described_slave() const {
    xcp_master::SlaveProperties slave = slave_;
    for (const auto& [code, name] : form_commands) {
        if (told_.contains(code))
            continue;
        if (!stated_.daq)
            throw SessionError(fmt::format(
                "no answer to {} in it, and the A2L file has no block DAQ in its IF_DATA", name));
        slave.remarks.push_back(
            fmt::format("no answer to {} in the capture: as the A2L file says", name));
    }
    remark_contradictions(stated_, slave);
    return slave;
}

CapturedSessions CommandReader::finish(std::uint64_t lastFrame) {
    end(lastFrame, result_.packets);
    return std::move(result_);
}

} // namespace task
