#include "command_channel.h"

#include "xcp/message.h"
#include "xcp/packet_text.h"

#include <utility>

namespace xcp_master {

namespace {

using namespace std::chrono_literals;

constexpr auto busy_pause = 20ms;
constexpr int most_busy_tries = 50;
constexpr std::uint8_t command_pending_event = 0x05; // the answer takes longer

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
    for (int tries = 0; tries < most_tries; ++tries) {
        const auto packet = try_to_connect();
        if (!packet)
            continue;
        if ((*packet)[0] == xcp::error_pid)
            throw Refused(xcp::Connect::name, packet->size() > 1 ? (*packet)[1] : 0);
        const auto answer = xcp::read_packet<xcp::Connect::Answer>(*packet, order_);
        if (!answer)
            throw SessionError("the slave's answer to CONNECT is too short");
        order_ = answer->order();
        if (tries > 0)
            synchronise(xcp::Connect::name); // the answer to an earlier try may still come
        return *answer;
    }
    throw SessionError("nobody answers to CONNECT, " + std::to_string(most_tries) + " times for " +
                       std::to_string(timeout_.count()) + " ms");
}

std::optional<Packet> CommandChannel::try_to_connect() {
    const Packet command = xcp::command_packet(xcp::Connect{}, order_);
    for (int tries = 1;; ++tries) {
        send(command);
        auto answer = await_answer(xcp::Connect::code);
        if (!answer || !is_error(*answer, xcp::Error::cmd_busy) || tries == most_busy_tries)
            return answer;
        pause(busy_pause);
    }
}

void CommandChannel::say_goodbye() {
    send(xcp::command_packet(xcp::Disconnect{}, order_));
}

void CommandChannel::disconnect() {
    say_goodbye();
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

// After the answer to SYNCH none to an earlier command comes any more.
void CommandChannel::synchronise(const std::string& unanswered) {
    for (int tries = 0; tries < most_tries; ++tries) {
        send(xcp::command_packet(xcp::Synch{}, order_));
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
    while (const auto late = link_.receive(link_.now())) // nothing that came before is an answer
        tell(false, *late, "late");
    Packet datagram;
    xcp::append_message(datagram, ctr_++, command);
    tell(true, command, xcp::command_in_words(command, order_));
    link_.send(datagram);
}

// Events and service requests come in between.
std::optional<Packet> CommandChannel::await_answer(std::uint8_t command) {
    Time until = link_.now() + timeout_;
    while (auto packet = link_.receive(until)) {
        tell(false, *packet, xcp::answer_in_words(command, *packet, order_));
        if (is_answer(*packet))
            return packet;
        if (packet->size() > 1 && (*packet)[0] == xcp::event_pid &&
            (*packet)[1] == command_pending_event)
            until = link_.now() + timeout_;
    }
    return {};
}

void CommandChannel::pause(std::chrono::milliseconds duration) {
    const Time until = link_.now() + duration;
    while (const auto packet = link_.receive(until))
        tell(false, *packet, "not waited for");
}

void CommandChannel::tell(bool sent, const Packet& packet, std::string meaning) {
    if (trace_)
        trace_({link_.now(), sent, packet, std::move(meaning)});
}

} // namespace xcp_master
