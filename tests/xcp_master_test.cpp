// Sessions without sockets: the master and a simulated slave, joined by calls, with a clock of the
// test's; and the master against a recorded session with a real slave.

#include "simulated_slave/slave.h"
#include "temporary_file.h"
#include "xcp/message.h"
#include "xcp/packet_text.h"
#include "xcp_master/dto_form.h"
#include "xcp_master/session.h"
#include "xcp_master/stamp_clock.h"

#include <gtest/gtest.h>

#include <deque>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>

using namespace xcp_master;
using namespace std::chrono_literals;

namespace {

constexpr auto timeout = 100ms;

Packet bytes_of(const std::string& hexadecimal) {
    std::istringstream words(hexadecimal);
    Packet bytes;
    for (std::string word; words >> word;)
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(word, nullptr, 16)));
    return bytes;
}

// What may happen to a command, by its number from 0.
struct Trouble {
    std::set<int> lostCommands;
    std::set<int> lostAnswers;
    std::set<int> lateAnswers;
    std::map<int, Packet>
        replaced;         // the answer that comes instead, and the command does not arrive
    bool doubled = false; // every answer comes twice
};

// The way to a simulated slave.
class TestLink : public Link {
  public:
    TestLink(const a2l::File& file, Trouble trouble)
        : slave(file, {}, [this](const auto& datagram) { deliver(datagram.payload); }),
          trouble_(std::move(trouble)) {}

    Time now() const override { return time_; }
    void send(std::span<const std::uint8_t> datagram) override {
        ++commands;
        ctrs.push_back(datagram[2]);
        if (trouble_.lostCommands.contains(commands - 1))
            return;
        const auto replaced = trouble_.replaced.find(commands - 1);
        if (replaced == trouble_.replaced.end())
            slave.take(datagram, static_cast<std::uint64_t>(time_.count()));
        else
            packets_.push_back({time_ + 1ms, {ctr_++, replaced->second}});
    }
    std::optional<Received> receive(Time until) override {
        if (packets_.empty() || packets_.front().first > until) {
            time_ = std::max(time_, until);
            return {};
        }
        time_ = std::max(time_, packets_.front().first);
        Received received = std::move(packets_.front().second);
        packets_.pop_front();
        return received;
    }
    void close_in_order() override {}
    void run_for(Time duration) {
        time_ += duration;
        slave.advance(static_cast<std::uint64_t>(time_.count()));
    }

    simulated_slave::Slave slave;
    int commands = 0;
    std::vector<std::uint8_t> ctrs;
    std::vector<Packet> daq;

  private:
    void deliver(std::span<const std::uint8_t> payload) {
        xcp::MessageWalk messages(payload);
        for (xcp::Message message{}; messages.next(message);) {
            const Packet packet(message.packet.begin(), message.packet.end());
            if (message.is_daq())
                daq.push_back(packet);
            else if (!trouble_.lostAnswers.contains(commands - 1))
                keep({ctr_++, packet});
        }
    }
    void keep(const Received& received) {
        const bool late = trouble_.lateAnswers.contains(commands - 1);
        packets_.push_back({time_ + (late ? timeout * 3 / 2 : 1ms), received});
        if (trouble_.doubled)
            packets_.push_back({packets_.back().first + 1ms, received});
    }

    Trouble trouble_;
    Time time_ = 1s;
    std::deque<std::pair<Time, Received>> packets_;
    std::uint16_t ctr_ = 0xFFF0; // of the slave; it does not count what got lost
};

// ---- the slave ----

constexpr const char* plain_a2l = R"(ASAP2_VERSION 1 71 /begin PROJECT p "" /begin MODULE m ""
/begin IF_DATA XCP
/begin PROTOCOL_LAYER 0x0104 1000 0 0 0 0 0 0 32 40 BYTE_ORDER_MSB_LAST ADDRESS_GRANULARITY_BYTE
/end PROTOCOL_LAYER
/begin DAQ DYNAMIC 0 2 0 OPTIMISATION_TYPE_DEFAULT ADDRESS_EXTENSION_FREE
IDENTIFICATION_FIELD_TYPE_RELATIVE_BYTE GRANULARITY_ODT_ENTRY_SIZE_DAQ_BYTE 16 NO_OVERLOAD_INDICATION
/begin TIMESTAMP_SUPPORTED 1 SIZE_DWORD UNIT_1NS TIMESTAMP_FIXED /end TIMESTAMP_SUPPORTED
/begin EVENT "fast" "f" 0 DAQ 0xFF 1 6 0 /end EVENT
/begin EVENT "slow" "s" 1 DAQ 0xFF 5 6 0 /end EVENT
/end DAQ /end IF_DATA
/begin MEASUREMENT a "" A_UINT64 NO_COMPU_METHOD 0 0 0 1 ECU_ADDRESS 0x100 ARRAY_SIZE 8 /end MEASUREMENT
/end MODULE /end PROJECT)";

a2l::File file_of(std::string text, const std::string& from = "", const std::string& to = "") {
    if (!from.empty())
        text.replace(text.find(from), from.size(), to);
    return a2l::File(TemporaryFile(text).path());
}

WantedList wanted_list(const char* name, std::uint16_t event, int values) {
    WantedList list{name, event, {}};
    for (int i = 0; i < values; ++i)
        list.values.push_back(
            {"a[" + std::to_string(i) + "]", 0x100 + 8 * static_cast<std::uint32_t>(i), 0, 8});
    return list;
}

const std::vector<WantedList> wanted = {wanted_list("quick", 0, 6), wanted_list("lazy", 1, 2)};

// A whole session: what was said when it failed, or nothing.
std::string run_session(TestLink& link, const StatedProperties& stated = {},
                        SlaveProperties* properties = nullptr) {
    Session session(link, timeout, {});
    try {
        const auto slave = session.connect(stated, wanted);
        if (properties != nullptr)
            *properties = slave;
        DaqPlan plan;
        try {
            plan = make_plan(wanted, limits_of(slave));
        } catch (const SessionError&) {
            session.end();
            throw;
        }
        session.start(plan, [&](const auto&) { link.daq.clear(); });
        link.run_for(10ms);
        EXPECT_GE(link.daq.size(), 20U) << "two ODTs every millisecond";
        session.end();
        return "";
    } catch (const SessionError& error) {
        return error.what();
    }
}

int commands_of_a_session() {
    const a2l::File file = file_of(plain_a2l);
    TestLink link(file, {});
    EXPECT_EQ(run_session(link), "");
    EXPECT_EQ(link.slave.violations(), 0U);
    EXPECT_FALSE(link.slave.connected());
    return link.commands;
}

// ---- sessions ----

TEST(Session, OutlivesEveryCommandAndAnswerThatIsLostOrLate) {
    const int commands = commands_of_a_session();
    ASSERT_GT(commands, 30);
    const a2l::File file = file_of(plain_a2l);
    for (int number = 0; number < commands; ++number)
        for (const Trouble& trouble :
             {Trouble{{number}, {}, {}, {}}, Trouble{{}, {number}, {}, {}},
              Trouble{{}, {}, {number}, {}}, Trouble{{}, {}, {number}, {}, true}}) {
            TestLink link(file, trouble);
            EXPECT_EQ(run_session(link), "") << "trouble at command " << number;
            EXPECT_EQ(link.slave.violations(), 0U) << "strict in length and CTR";
            EXPECT_FALSE(link.slave.running()) << number;
            for (std::size_t i = 0; i < link.ctrs.size(); ++i)
                ASSERT_EQ(link.ctrs[i], static_cast<std::uint8_t>(i));
        }
}

TEST(Session, EndsInOrderAtEveryRefusal) {
    const int commands = commands_of_a_session();
    const a2l::File file = file_of(plain_a2l);
    int refused = 0;
    for (int number = 0; number < commands; ++number)
        for (const xcp::ErrorText& error : xcp::error_texts) {
            const auto code = static_cast<std::uint8_t>(error.error);
            TestLink link(file, {{}, {}, {}, {{number, {xcp::error_pid, code}}}});
            const std::string failure = run_session(link);
            if (!failure.empty()) {
                ++refused;
                const bool named = failure.find(error.name) != std::string::npos ||
                                   failure.find("the slave has no event channel") == 0 ||
                                   failure.find("the slave does not have GET_DAQ_") == 0;
                EXPECT_TRUE(named) << failure << " at " << number;
            }
            if (error.error == xcp::Error::cmd_busy) {
                EXPECT_EQ(failure, "") << "tried again, at " << number;
            }
            EXPECT_FALSE(link.slave.running());
            if (number < commands - 1) { // the last one is DISCONNECT itself
                EXPECT_FALSE(link.slave.connected()) << failure;
            }
        }
    EXPECT_GT(refused, 20 * (commands - 10)) << "only a few refusals are not minded";
}

TEST(Session, TellsWhoIsSilentAndGivesUpAfterThreeSetUps) {
    const a2l::File file = file_of(plain_a2l);
    Trouble silent;
    for (int number = 0; number < 1000; ++number)
        silent.lostCommands.insert(number);
    TestLink dead(file, silent);
    EXPECT_EQ(run_session(dead), "nobody answers to CONNECT, 3 times for 100 ms");
    silent.lostCommands.erase(0);
    TestLink dumb(file, silent);
    EXPECT_EQ(run_session(dumb), "the slave has fallen silent: no answer to GET_STATUS, nor to 3 "
                                 "SYNCH of 100 ms each");
}

// Connected, and then events without end, a millisecond apart.
class EventfulLink : public Link {
  public:
    explicit EventfulLink(Packet event) : event_(std::move(event)) {}
    Time now() const override { return time_; }
    void send(std::span<const std::uint8_t> datagram) override { connects_ = datagram[4] == 0xFF; }
    void close_in_order() override {}
    std::optional<Received> receive(Time) override {
        time_ += 1ms;
        if (std::exchange(connects_, false))
            return Received{0, bytes_of("ff 04 00 10 10 00 01 01")};
        return Received{0, event_};
    }

  private:
    const Packet event_;
    Time time_{};
    bool connects_ = false;
};

TEST(Session, EndsThoughEventsDoNot) {
    for (const char* event : {"fd 08", "fd 05"}) { // the second one asks for more time
        EventfulLink link(bytes_of(event));
        Session session(link, timeout, {});
        EXPECT_THROW(session.connect({}, {}), SessionError);
        EXPECT_LT(link.now(), 30s);
    }
}

// What a slave may differ in, and what is said of it. Its A2L file says the same.
TEST(Session, RefusesWhatCannotBeReceived) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"SUPPORTED 1", "SUPPORTED 0",
         "the slave's timestamp is 4 bytes, 0 ticks in 1 ns, only 1, 2 or 4 bytes of ticks, or "
         "none, can be received"},
        {"32 40", "32 12",
         "list quick: a[0] has 8 bytes, a packet of at most 12 bytes has room for 6"},
        {"\"slow\" \"s\" 1", "\"slow\" \"s\" 7", "the slave has no event channel 1 of list lazy"},
        {"ARRAY_SIZE 8", "ARRAY_SIZE 5",
         "the slave refused WRITE_DAQ of a[5] at 0x00000128, extension 0: ERR_ACCESS_DENIED (the "
         "slave does not give this memory: does the A2L file belong to its software?)"},
    };
    for (const auto& [from, to, expected] : cases) {
        const a2l::File file = file_of(plain_a2l, from, to);
        TestLink link(file, {});
        EXPECT_EQ(run_session(link), expected);
        EXPECT_FALSE(link.slave.connected());
    }
}

TEST(Session, TellsWhatTheSlaveDoesNotSayOrSaysOtherwise) {
    const a2l::File file = file_of(plain_a2l);
    StatedProperties stated;
    stated.maxDto = 20;
    stated.events = {{0, "fast", 2'000'000}, {1, "slow", 5'000'000}};
    DaqProperties daq;
    daq.identificationField = IdentificationField::relative_byte;
    daq.dynamic = true;
    daq.timestampSize = 2;
    stated.daq = daq;
    TestLink link(file, {{}, {}, {}, {{3, {xcp::error_pid, 0x20}}}}); // GET_DAQ_PROCESSOR_INFO
    SlaveProperties slave;
    EXPECT_EQ(run_session(link, stated, &slave), "");
    EXPECT_EQ(slave.remarks,
              (std::vector<std::string>{
                  "the slave does not have GET_DAQ_PROCESSOR_INFO: as the A2L file says",
                  "MAX_DTO: the slave says 40 bytes, the A2L file 20 bytes",
                  "timestamp: the slave says 4 bytes in units of 1 ns, the A2L file 2 bytes in "
                  "units of 1 ns",
                  "event channel 0: the slave says every 1 ms, the A2L file 2 ms"}));
}

// ---- plan ----

TEST(DaqPlan, FillsAsFewPacketsAsTheLimitsAllow) {
    DaqLimits limits;
    limits.maxDto = 24;
    const auto shape = [&](int values) {
        std::vector<std::size_t> entries;
        const DaqPlan plan = make_plan({wanted_list("l", 0, values)}, limits);
        for (const Odt& odt : plan.lists[0].odts)
            entries.push_back(odt.size());
        return entries;
    };
    EXPECT_EQ(shape(2), (std::vector<std::size_t>{2})) << "2 + 4 + 16 of 24 bytes";
    EXPECT_EQ(shape(5), (std::vector<std::size_t>{2, 2, 1}));
    limits.timestampSize = 0;
    limits.maxDto = 10'000;
    EXPECT_EQ(shape(600), (std::vector<std::size_t>{255, 255, 90}));
    limits.maxDto = 10;
    EXPECT_EQ(shape(192).size(), 192U);
    EXPECT_THROW(shape(193), SessionError);
    EXPECT_THROW(make_plan(std::vector(5, wanted_list("l", 0, 1)), limits), SessionError);
}

// ---- forms ----

// One sample as a slave of the form sends it: a second statement, byte by byte.
struct Form {
    IdentificationField field;
    xcp::ByteOrder order;
    std::uint64_t unit_ns;
    std::uint16_t minDaq;
    std::size_t padding;
    bool overload;

    void put(Packet& packet, std::uint64_t number, int bytes) const {
        for (int i = 0; i < bytes; ++i)
            packet.push_back(static_cast<std::uint8_t>(
                number >> 8 * (order == xcp::ByteOrder::little ? i : bytes - 1 - i)));
    }
    // First ODT of list 0 at 10, of list 1 at 20 where they are absolute.
    Packet packet(int list, int odt, std::uint32_t ticks, const Packet& entries) const {
        const bool absolute = field == IdentificationField::absolute;
        Packet packet = {static_cast<std::uint8_t>((absolute ? 10 * (list + 1) : 0) + odt +
                                                   (overload ? 128 : 0))};
        if (field == IdentificationField::aligned)
            packet.push_back(0xAA);
        if (!absolute)
            put(packet, static_cast<std::uint64_t>(minDaq + list),
                field == IdentificationField::relative_byte ? 1 : 2);
        if (odt == 0)
            put(packet, ticks, 4);
        packet.insert(packet.end(), entries.begin(), entries.end());
        packet.resize((packet.size() + padding - 1) / padding * padding, 0xEE);
        return packet;
    }
};

TEST(DtoForm, BringsEveryFormIntoTheReceivers) {
    DaqPlan plan;
    for (int list = 0; list < 2; ++list)
        plan.lists.push_back({"l", 0, {{{"a", 0, 0, 3}}, {{"b", 0, 0, 2}, {"c", 0, 0, 4}}}});
    int forms = 0;
    for (int bits = 0; bits < 4 * 2 * 3 * 2 * 3 * 2; ++bits) {
        int rest = bits;
        const auto choose = [&rest](int count) {
            return static_cast<std::size_t>(std::exchange(rest, rest / count) % count);
        };
        const Form form{static_cast<IdentificationField>(choose(4)),
                        choose(2) == 0 ? xcp::ByteOrder::little : xcp::ByteOrder::big,
                        std::array<std::uint64_t, 3>{1, 100, 1000}[choose(3)],
                        static_cast<std::uint16_t>(choose(2) * 3),
                        std::array<std::size_t, 3>{1, 4, 8}[choose(3)],
                        choose(2) == 1};
        DaqProperties slave;
        slave.identificationField = form.field;
        slave.order = form.order;
        slave.unit_ps = form.unit_ns * 1000;
        slave.minDaq = form.minDaq;
        slave.overloadInPid = form.overload;
        slave.timestampSize = 4;
        DtoForm dto(slave, plan, {10, 20});
        Packet sent;
        Packet expected;
        for (int list = 0; list < 2; ++list)
            for (const Packet& entries : {Packet{1, 2, 3}, Packet{4, 5, 6, 7, 8, 9}}) {
                const int odt = entries.size() == 3 ? 0 : 1;
                constexpr std::uint32_t ticks = 0xFEDCBA98;
                xcp::append_message(sent, 7, form.packet(list, odt, ticks, entries));
                Packet own = {static_cast<std::uint8_t>(odt), static_cast<std::uint8_t>(list)};
                for (int i = 0; i < 4 && odt == 0; ++i)
                    own.push_back(static_cast<std::uint8_t>(ticks * form.unit_ns >> 8 * i));
                own.insert(own.end(), entries.begin(), entries.end());
                xcp::append_message(expected, 7, own);
            }
        const auto own = dto.take(sent, {});
        EXPECT_EQ(Packet(own.begin(), own.end()), expected) << bits;
        EXPECT_EQ(own.data() == sent.data(), sent == expected) << "what is right goes untouched";
        EXPECT_EQ(dto.overloads(), form.overload ? 4U : 0U);
        for (std::size_t size = 0; size < sent.size(); ++size)
            dto.take({sent.data(), size}, {}); // cut anywhere, for the address sanitizer
        ++forms;
    }
    EXPECT_EQ(forms, 288);
}

TEST(DtoForm, LeavesWhatIsNoPacketOfThePlanForWhoeverCountsIt) {
    DaqPlan plan;
    plan.lists.push_back({"l", 0, {{{"a", 0, 0, 1}}}});
    DaqProperties slave;
    slave.identificationField = IdentificationField::aligned;
    slave.timestampSize = 4;
    DtoForm dto(slave, plan, {0});
    Packet sent;
    for (const char* packet :
         {"00 aa 05 00 1 2", "03 aa 00 00 1 2", "00 aa 00 01 1", "00 aa", "ff 1"})
        xcp::append_message(sent, 0, bytes_of(packet));
    Packet expected;
    for (const char* packet : {"00 05 1 2", "03 00 1 2", "00 ff 1", "00 aa", "ff 1"})
        xcp::append_message(expected, 0, bytes_of(packet));
    const auto own = dto.take(sent, {});
    EXPECT_EQ(Packet(own.begin(), own.end()), expected);
    slave.identificationField = IdentificationField::absolute;
    plan.lists.push_back(plan.lists[0]);
    EXPECT_THROW(DtoForm(slave, plan, {5, 5}), SessionError);
}

// Two lists on a way of changing length: every time is the slave's own, from its first on.
TEST(StampClock, CountsTheTurnsOfShortAndOfFineTimestamps) {
    struct Case {
        std::size_t size;
        std::uint64_t unit_ps;
        std::uint16_t ticks;
        std::chrono::nanoseconds cycle, jitter, pause;
        bool told;
    };
    const Case cases[] = {
        {2, 1'000'000, 1, 1ms, 20ms, 0ns, true},   // turns each 65.5 ms
        {2, 1'000'000, 1, 1ms, 10ms, 100ms, true}, // and the host counts one
        {2, 1'000'000, 1, 1ms, 10ms, 400ms, false},
        {2, 1'000'000, 1, 50ms, 10ms, 0ns, true}, // the lists of 50 and 150 ms
        {1, 100'000'000, 1, 1ms, 6ms, 0ns, true}, // turns each 25.6 ms
        {2, 100, 3, 1us, 500ns, 0ns, true},       // turns each 2.2 us, a third of 0.1 ns
        {4, 1'000'000, 3, 1ms, 20ms, 3600s, true},
        {4, 100, 1, 1ms, 20ms, 1s, true}, // turns each 429 ms
    };
    std::mt19937 random{3};
    for (const Case& c : cases) {
        DaqProperties slave;
        slave.timestampSize = c.size;
        slave.unit_ps = c.unit_ps;
        slave.ticksPerUnit = c.ticks;
        StampClock clock(slave);
        std::int64_t wrong = 0;
        std::optional<std::int64_t> shift;
        Time arrived{};
        for (int i = 0; i < 3000; ++i) {
            const Time now = 1s + i * c.cycle + (i > 1500 ? c.pause : 0ns);
            const auto ticks = static_cast<std::uint64_t>(now.count()) * 1000 / c.unit_ps * c.ticks;
            arrived = std::max<Time>(arrived, now + (random() % 100) * c.jitter / 100);
            const int list = i % 3 == 0 ? 1 : 0;
            const auto time = static_cast<std::int64_t>(
                clock.time_ns(static_cast<std::uint8_t>(list),
                              ticks & ((std::uint64_t{1} << 8 * c.size) - 1), arrived));
            const std::int64_t off = time - now.count();
            wrong += std::abs(off - shift.value_or(off)) > 1 ? 1 : 0;
            shift = shift.value_or(off);
        }
        EXPECT_EQ(clock.untold() == 0, c.told) << c.size << " bytes of " << c.unit_ps;
        EXPECT_TRUE(wrong == 0 || !c.told) << c.size << " bytes of " << c.unit_ps << ": " << wrong;
    }
}

// ---- a recorded session ----

// Answers as the real slave did to the same bytes. What the recorded master did not send is refused
// as that slave refuses it.
class RecordedLink : public Link {
  public:
    explicit RecordedLink(const std::string& path) {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            const std::size_t arrow = line.find("->");
            const Packet command = bytes_of(line.substr(25, arrow - 25));
            recorded.push_back(command);
            answers_[{command.begin(), command.end()}].push_back(bytes_of(line.substr(arrow + 2)));
        }
    }
    Time now() const override { return {}; }
    void send(std::span<const std::uint8_t> datagram) override {
        sent.emplace_back(datagram.begin() + xcp::message_header_size, datagram.end());
        auto& answers = answers_[{sent.back().begin(), sent.back().end()}];
        const auto ctr = static_cast<std::uint16_t>(sent.size());
        answer_ = Received{ctr, answers.empty() ? Packet{xcp::error_pid, 0x2A} : answers.front()};
        if (answers.size() > 1)
            answers.pop_front();
    }
    std::optional<Received> receive(Time) override { return std::exchange(answer_, {}); }
    void close_in_order() override {}

    std::vector<Packet> recorded;
    std::vector<Packet> sent;

  private:
    std::map<std::string, std::deque<Packet>> answers_; // by the command's bytes
    std::optional<Received> answer_;
};

// The plan of the recorded session, out of its own WRITE_DAQ commands.
DaqPlan recorded_plan(const std::vector<Packet>& commands) {
    DaqPlan plan;
    for (const Packet& command : commands) {
        if (command[0] == xcp::AllocDaq::code)
            plan.lists.resize(command[2]);
        if (command[0] == xcp::SetDaqPtr::code) {
            plan.lists.at(command[2]).odts.emplace_back();
            plan.lists.at(command[2]).event = command[2];
        }
        if (command[0] != xcp::WriteDaq::code)
            continue;
        const auto entry = xcp::read_packet<xcp::WriteDaq>(command, xcp::ByteOrder::little);
        for (auto list = plan.lists.rbegin(); list != plan.lists.rend(); ++list)
            if (!list->odts.empty()) {
                list->odts.back().push_back({"", entry->address, entry->extension, entry->size});
                break;
            }
    }
    return plan;
}

// From FREE_DAQ to the start of the lists: what has to be byte for byte the same.
std::vector<Packet> set_up_commands(const std::vector<Packet>& all) {
    const auto first = std::find(all.begin(), all.end(), Packet{xcp::FreeDaq::code});
    const auto last = std::find(first, all.end(), Packet{xcp::StartStopSynch::code, 1});
    return {first, last == all.end() ? last : last + 1};
}

TEST(RecordedSession, IsSetUpWithTheBytesThatTheSlaveHasTaken) {
    RecordedLink link(XCP_DAQ_TEST_DATA "/session.txt");
    Session session(link, timeout, {});
    const auto slave = session.connect({}, {{"f", 0, {}}, {"s", 1, {}}});
    EXPECT_EQ(slave.id, "rig");
    EXPECT_EQ(slave.maxDto, 512U);
    EXPECT_EQ(slave.maxEntrySize, 248U);
    session.start(recorded_plan(link.recorded), [](const auto&) {});
    EXPECT_EQ(set_up_commands(link.sent), set_up_commands(link.recorded));
    EXPECT_EQ(set_up_commands(link.sent).size(), 50U);
    session.end();
    EXPECT_EQ(link.sent.back(), Packet{xcp::Disconnect::code});
}

TEST(RecordedSession, EveryAnswerIsUnderstood) {
    std::ifstream file(XCP_DAQ_TEST_DATA "/session.txt");
    int lines = 0;
    for (std::string line; std::getline(file, line); ++lines) {
        const std::size_t arrow = line.find("->");
        const Packet command = bytes_of(line.substr(25, arrow - 25));
        const Packet answer = bytes_of(line.substr(arrow + 2));
        EXPECT_EQ(xcp::command_name(command[0]), line.substr(0, line.find(' ')));
        const std::string words = xcp::answer_in_words(command[0], answer, xcp::ByteOrder::little);
        EXPECT_EQ(words.find("ok"), 0U) << line;
        EXPECT_EQ(words.find("too short"), std::string::npos) << line;
    }
    EXPECT_GE(lines, 68);
}

} // namespace
