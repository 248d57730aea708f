#pragma once
// One command at a time, and its answer: time-outs, CTR, and what to do when an answer is late,
// lost or "busy". Bytes come and go through a Link, which also has the time, so that a session also
// runs without sockets.

#include "session_error.h"
#include "xcp/commands.h"
#include "xcp/error_codes.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace xcp_master {

using Packet = std::vector<std::uint8_t>;
using Time = std::chrono::nanoseconds; // since any beginning

// What a slave sent that is no DAQ packet.
struct Received {
    std::uint16_t ctr = 0; // of its message
    Packet packet;         // never empty
};

// The way to the slave. One thread's.
class Link {
  public:
    virtual ~Link() = default;
    virtual Time now() const = 0;

    // Sends a datagram. May throw; the session has failed then.
    virtual void send(std::span<const std::uint8_t> datagram) = 0;

    // What came next from the slave, waiting for it until the given time; empty when nothing came.
    // Throws Interrupted when nobody wants the session any more.
    virtual std::optional<Received> receive(Time until) = 0;

    // From now on the session is being closed, for which only somebody in a hurry does not wait.
    virtual void close_in_order() = 0;
};

class Interrupted : public SessionError {
  public:
    Interrupted() : SessionError("interrupted") {}
};

// The slave has refused a command.
class Refused : public SessionError {
  public:
    Refused(const std::string& what, std::uint8_t errorCode);
    std::uint8_t code() const { return code_; }
    bool is(xcp::Error error) const { return code_ == static_cast<std::uint8_t>(error); }

  private:
    std::uint8_t code_;
};

// An answer that does not keep to the standard.
class BadAnswer : public SessionError {
  public:
    using SessionError::SessionError;
};

// No answer came to a command, but one to the SYNCH after it: what the slave has done of the
// command is not known.
class AnswerLost : public SessionError {
  public:
    using SessionError::SessionError;
};

// Commands and what the slave says, for whoever reads along.
struct TraceEvent {
    Time time{};
    bool sent = false; // to the slave
    std::span<const std::uint8_t> packet;
    std::string meaning;
};
using Trace = std::function<void(const TraceEvent&)>;

class CommandChannel {
  public:
    static constexpr int most_tries = 3; // of a command whose answer does not come

    // The time-out is that of every command of a DAQ session (T1). Link and trace outlive the
    // object; a trace may be empty.
    CommandChannel(Link& link, std::chrono::milliseconds timeout, Trace trace);

    // Connects, and from then on speaks the slave's byte order. Throws SessionError when nobody
    // answers, after most_tries time-outs.
    xcp::Connect::Answer connect();

    // The same with a single try: empty when nobody answers.
    std::optional<xcp::Connect::Answer> connect_once();

    // Disconnects; nothing is left to be done when no answer comes.
    void disconnect();

    // Sends a command whose answer nobody waits for.
    template <class Command>
    void send_only(const Command& command) {
        send(xcp::command_packet(command, order_));
    }

    // Sends the command and gives the slave's answer. `what` names the command's object in errors.
    // Throws Refused, AnswerLost, or SessionError when the slave has fallen silent.
    template <class Command>
    typename Command::Answer request(const Command& command, const std::string& what = "") {
        const Packet answer = exchange(xcp::command_packet(command, order_), what);
        const auto value = xcp::read_packet<typename Command::Answer>(answer, order_);
        if (!value)
            throw BadAnswer("the slave's answer to " + std::string(Command::name) +
                            " is too short");
        return *value;
    }

    // The same for a question, which can be asked again when its answer was lost.
    template <class Command>
    typename Command::Answer ask(const Command& command, const std::string& what = "") {
        return again_when_lost([&] { return request(command, what); });
    }

    // The answer to a question that is asked once; empty when none comes, or a refusal.
    template <class Command>
    std::optional<typename Command::Answer> ask_once(const Command& command) {
        send(xcp::command_packet(command, order_));
        const auto answer = await_answer(Command::code);
        if (!answer || (*answer)[0] == xcp::error_pid)
            return {};
        return xcp::read_packet<typename Command::Answer>(*answer, order_);
    }

    // Does `act` from its beginning when an answer was lost in it, most_tries times in all.
    template <class Act>
    static auto again_when_lost(const Act& act) {
        for (int tries = 1; tries < most_tries; ++tries)
            try {
                return act();
            } catch (const AnswerLost&) {
            }
        return act();
    }

    xcp::ByteOrder order() const { return order_; }
    std::chrono::milliseconds timeout() const { return timeout_; }

  private:
    std::optional<Packet> try_to_connect();
    Packet exchange(const Packet& command, const std::string& what);
    Packet exchange_once(const Packet& command);
    void synchronise(const std::string& unanswered);
    void send(const Packet& command);
    std::optional<Packet> await_answer(std::uint8_t command);
    bool is_answer_to(std::uint8_t command, const Received& received);
    bool came_before(const Received& received) const;
    void pause(std::chrono::milliseconds duration);
    void tell(bool sent, const Packet& packet, std::string meaning);

    Link& link_;
    const std::chrono::milliseconds timeout_;
    const Trace trace_;
    xcp::ByteOrder order_ = xcp::ByteOrder::little;
    std::uint16_t ctr_ = 0;
    int unansweredConnects_ = 0; // to which an answer may still come

    // Of this session; a network may repeat what it carries.
    std::optional<Received> lastAnswer_;
    Time lastAnswerAt_{};
    bool slaveCounts_ = false; // its CTR is not always the same
};

} // namespace xcp_master
