#include "command_channel.h"

#include "xcp/event_codes.h"
#include "xcp/message.h"
#include "xcp/packet_text.h"

#include <algorithm>
#include <utility>

namespace xcp_master {

namespace {

using namespace std::chrono_literals;

constexpr auto busy_pause = 20ms;
constexpr int most_busy_tries = 50;
constexpr int longest_pending = 30; // time-outs
constexpr int most_waiting = 1000;  // packets that are passed over before a command

bool is_error(const Packet& packet, xcp::Error error) {
    return packet.size() >= 2 && packet[0] == xcp::error_pid &&
           packet[1] == static_cast<std::uint8_t>(error);
}

bool is_answer(const Packet& packet) {
    return !packet.empty() && (packet[0] == xcp::response_pid || packet[0] == xcp::error_pid);
}

std::string of(const std::string& what) {
    return what.empty() ? "" : " of " + what;
}

} // namespace

Refused::Refused(const std::string& what, std::uint8_t errorCode)
    : SessionError("the slave refused " + what + ": " + xcp::error_in_words(errorCode)),
      code_(errorCode) {}

CommandChannel::CommandChannel(Link& link, std::chrono::milliseconds timeout, Trace trace)
    : link_(link), timeout_(timeout), trace_(std::move(trace)) {}

// Tried again without SYNCH before it, which a slave that is not connected does not answer.
xcp::Connect::Answer CommandChannel::connect() {
    for (int tries = 0; tries < most_tries; ++tries)
        if (const auto answer = connect_once())
            return *answer;
    throw SessionError("nobody answers to CONNECT, " + std::to_string(most_tries) + " times for " +
                       std::to_string(timeout_.count()) + " ms");
}

std::optional<xcp::Connect::Answer> CommandChannel::connect_once() {
    const auto packet = try_to_connect();
    if (!packet) {
        ++unansweredConnects_;
        return {};
    }
    if ((*packet)[0] == xcp::error_pid)
        throw Refused(xcp::Connect::name, packet->size() > 1 ? (*packet)[1] : 0);
    const auto answer = xcp::read_packet<xcp::Connect::Answer>(*packet, order_);
    if (!answer)
        throw BadAnswer("the slave's answer to CONNECT is too short");
    order_ = answer->order();
    if (std::exchange(unansweredConnects_, 0) > 0)
        synchronise(xcp::Connect::name);
    return answer;
}

std::optional<Packet> CommandChannel::try_to_connect() {
    const Packet command = xcp::command_packet(xcp::Connect{}, order_);
    lastAnswer_.reset();
    slaveCounts_ = false;
    for (int tries = 1;; ++tries) {
        send(command);
        auto answer = await_answer(xcp::Connect::code);
        if (!answer || !is_error(*answer, xcp::Error::cmd_busy) || tries == most_busy_tries)
            return answer;
        pause(busy_pause);
    }
}

void CommandChannel::disconnect() {
    send_only(xcp::Disconnect{});
    await_answer(xcp::Disconnect::code);
}

Packet CommandChannel::exchange(const Packet& command, const std::string& what) {
    Packet answer = exchange_once(command);
    for (int tries = 1; is_error(answer, xcp::Error::cmd_busy) && tries < most_busy_tries;
         ++tries) {
        pause(busy_pause);
        answer = exchange_once(command);
    }
    if (answer[0] == xcp::error_pid)
        throw Refused(xcp::command_name(command[0]) + of(what), answer.size() > 1 ? answer[1] : 0);
    return answer;
}

Packet CommandChannel::exchange_once(const Packet& command) {
    send(command);
    if (auto answer = await_answer(command[0]))
        return *std::move(answer);
    synchronise(xcp::command_name(command[0]));
    throw AnswerLost("the slave does not answer to " + xcp::command_name(command[0]));
}

// Answers to commands before it may still come first.
void CommandChannel::synchronise(const std::string& unanswered) {
    for (int tries = 0; tries < most_tries; ++tries) {
        send_only(xcp::Synch{});
        while (const auto answer = await_answer(xcp::Synch::code))
            if (is_error(*answer, xcp::Error::cmd_synch))
                return;
    }
    throw SessionError("the slave has fallen silent: no answer to " + unanswered + ", nor to " +
                       std::to_string(most_tries) + " SYNCH of " +
                       std::to_string(timeout_.count()) + " ms each");
}

// One message in a datagram and no byte behind it: there are slaves that take no more.
void CommandChannel::send(const Packet& command) {
    for (int i = 0; i < most_waiting; ++i) { // what came before is no answer
        const auto late = link_.receive(link_.now());
        if (!late)
            break;
        tell(false, late->packet, "not waited for");
    }
    Packet datagram;
    xcp::append_message(datagram, ctr_++, command);
    tell(true, command, xcp::command_in_words(command, order_));
    link_.send(datagram);
}

// Events and service requests come in between.
std::optional<Packet> CommandChannel::await_answer(std::uint8_t command) {
    const Time start = link_.now();
    Time until = start + timeout_;
    while (auto received = link_.receive(until)) {
        if (is_answer_to(command, *received))
            return std::move(received->packet);
        const Packet& packet = received->packet;
        if (command != xcp::Synch::code && packet.size() > 1 && packet[0] == xcp::event_pid &&
            packet[1] == static_cast<std::uint8_t>(xcp::Event::cmd_pending))
            until = std::min<Time>(link_.now() + timeout_, start + longest_pending * timeout_);
        if (link_.now() >= until) // though there is more
            break;
    }
    return {};
}

bool CommandChannel::is_answer_to(std::uint8_t command, const Received& received) {
    const Packet& packet = received.packet;
    const bool answer = is_answer(packet);
    const bool toSynch = is_error(packet, xcp::Error::cmd_synch);
    const bool late = answer && (came_before(received) || (toSynch && command != xcp::Synch::code));
    tell(false, packet, late ? "late" : xcp::answer_in_words(command, packet, order_));
    if (!answer || late)
        return false;
    slaveCounts_ = slaveCounts_ || (lastAnswer_ && lastAnswer_->ctr != received.ctr);
    lastAnswer_ = received;
    lastAnswerAt_ = link_.now();
    return true;
}

// Soon after the last one: DAQ packets count as well, and turn the counter. Some slaves do not
// count. Of those what is no bare acknowledgement is known by its bytes.
bool CommandChannel::came_before(const Received& received) const {
    constexpr std::uint16_t near = 256; // messages
    if (!lastAnswer_ || link_.now() - lastAnswerAt_ > most_tries * timeout_)
        return false;
    if (slaveCounts_)
        return static_cast<std::uint16_t>(lastAnswer_->ctr - received.ctr) < near;
    return received.ctr == lastAnswer_->ctr && received.packet.size() > 2 &&
           received.packet == lastAnswer_->packet;
}

void CommandChannel::pause(std::chrono::milliseconds duration) {
    const Time until = link_.now() + duration;
    while (const auto received = link_.receive(until)) {
        tell(false, received->packet, "not waited for");
        if (link_.now() >= until)
            break;
    }
}

void CommandChannel::tell(bool sent, const Packet& packet, std::string meaning) {
    if (trace_)
        trace_({link_.now(), sent, packet, std::move(meaning)});
}

} // namespace xcp_master
