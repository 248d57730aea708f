#include "xcp_reader.h"

#include "block_reader.h"
#include "token_values.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <string>
#include <utility>

namespace a2l {

namespace {

// What a kind of block may hold. Everything else in it is passed over.
template <class Target>
struct Rules {
    struct Word {
        std::string_view word;
        void (*take)(Target&, std::uint64_t value);
        std::uint64_t value = 0;
    };
    struct Nested {
        std::string_view keyword;
        void (*take)(Target&, BlockReader&);
    };
    using TakeNumber = void (*)(Target&, std::uint64_t);
    using TakeString = void (*)(Target&, std::size_t position, std::string text);

    std::span<const Word> words;
    std::span<const TakeNumber> numbers; // by their position among the numbers
    std::span<const Nested> blocks;
    // Strings that no word announces, by their position; and those that one does.
    TakeString takeString = nullptr;
    void (*takeNamedString)(Target&, std::string_view word, std::string text) = nullptr;
};

// Walks to the block's end.
template <class Target>
class RulesReader {
  public:
    RulesReader(BlockReader& reader, const Rules<Target>& rules, Target& target)
        : reader_(reader), rules_(rules), target_(target) {}

    void read() {
        for (;;) {
            const Token token = reader_.next();
            if (token.kind == TokenKind::end || token.kind == TokenKind::end_of_text)
                return;
            if (token.kind == TokenKind::begin)
                take_block(token.text);
            else if (token.kind == TokenKind::string)
                take_string(token.text);
            else if (const auto number = to_integer(token.text))
                take_number(*number);
            else
                take_word(token.text);
        }
    }

  private:
    void take_block(std::string_view keyword) {
        for (const auto& block : rules_.blocks)
            if (block.keyword == keyword)
                return block.take(target_, reader_);
        reader_.skip_block();
    }

    void take_string(std::string_view text) {
        if (word_.empty() && rules_.takeString != nullptr)
            rules_.takeString(target_, strings_++, to_text(text));
        else if (!word_.empty() && rules_.takeNamedString != nullptr)
            rules_.takeNamedString(target_, word_, to_text(text));
        word_ = {};
    }

    void take_number(std::uint64_t number) {
        word_ = {};
        if (numbers_ < rules_.numbers.size())
            rules_.numbers[numbers_++](target_, number);
    }

    void take_word(std::string_view word) {
        word_ = word;
        for (const auto& known : rules_.words)
            if (known.word == word)
                known.take(target_, known.value);
    }

    BlockReader& reader_;
    const Rules<Target>& rules_;
    Target& target_;
    std::string_view word_; // before this token
    std::size_t numbers_ = 0;
    std::size_t strings_ = 0;
};

template <class Target>
void read_block(BlockReader& reader, const Rules<Target>& rules, Target& target) {
    RulesReader<Target>(reader, rules, target).read();
}

template <class Target>
void pass_over(Target&, std::uint64_t) {}

// ---- PROTOCOL_LAYER ----

template <std::size_t Index>
void take_timeout(Xcp& xcp, std::uint64_t ms) {
    xcp.timeouts[Index] = std::chrono::milliseconds(saturated<std::uint16_t>(ms));
}

void take_byte_order(Xcp& xcp, std::uint64_t order) {
    xcp.byteOrder = static_cast<ByteOrder>(order);
}

void take_address_granularity(Xcp& xcp, std::uint64_t bytes) {
    xcp.addressGranularity = static_cast<std::uint8_t>(bytes);
}

constexpr Rules<Xcp>::Word protocol_words[] = {
    {"BYTE_ORDER_MSB_LAST", take_byte_order, static_cast<std::uint64_t>(ByteOrder::little)},
    {"BYTE_ORDER_MSB_FIRST", take_byte_order, static_cast<std::uint64_t>(ByteOrder::big)},
    {"ADDRESS_GRANULARITY_BYTE", take_address_granularity, 1},
    {"ADDRESS_GRANULARITY_WORD", take_address_granularity, 2},
    {"ADDRESS_GRANULARITY_DWORD", take_address_granularity, 4}};

constexpr Rules<Xcp>::TakeNumber protocol_numbers[] = {
    pass_over<Xcp>, // version
    take_timeout<0>,
    take_timeout<1>,
    take_timeout<2>,
    take_timeout<3>,
    take_timeout<4>,
    take_timeout<5>,
    take_timeout<6>,
    [](Xcp& xcp, std::uint64_t bytes) { xcp.maxCto = saturated<std::uint8_t>(bytes); },
    [](Xcp& xcp, std::uint64_t bytes) { xcp.maxDto = saturated<std::uint16_t>(bytes); }};

constexpr Rules<Xcp> protocol_rules{protocol_words, protocol_numbers, {}, nullptr, nullptr};

void read_protocol_layer(Xcp& xcp, BlockReader& reader) {
    read_block(reader, protocol_rules, xcp);
}

// ---- DAQ: TIMESTAMP_SUPPORTED ----

void take_stamp_size(Timestamp& stamp, std::uint64_t bytes) {
    stamp.size = bytes;
}

void take_stamp_unit(Timestamp& stamp, std::uint64_t unit_ps) {
    stamp.unit_ps = unit_ps;
}

constexpr Rules<Timestamp>::Word stamp_words[] = {
    {"NO_TIME_STAMP", take_stamp_size, 0},
    {"SIZE_BYTE", take_stamp_size, 1},
    {"SIZE_WORD", take_stamp_size, 2},
    {"SIZE_DWORD", take_stamp_size, 4},
    {"UNIT_1PS", take_stamp_unit, 1},
    {"UNIT_10PS", take_stamp_unit, 10},
    {"UNIT_100PS", take_stamp_unit, 100},
    {"UNIT_1NS", take_stamp_unit, 1000},
    {"UNIT_10NS", take_stamp_unit, 10'000},
    {"UNIT_100NS", take_stamp_unit, 100'000},
    {"UNIT_1US", take_stamp_unit, 1'000'000},
    {"UNIT_10US", take_stamp_unit, 10'000'000},
    {"UNIT_100US", take_stamp_unit, 100'000'000},
    {"UNIT_1MS", take_stamp_unit, 1'000'000'000},
    {"UNIT_10MS", take_stamp_unit, 10'000'000'000},
    {"UNIT_100MS", take_stamp_unit, 100'000'000'000},
    {"UNIT_1S", take_stamp_unit, 1'000'000'000'000},
    {"TIMESTAMP_FIXED", [](Timestamp& stamp, std::uint64_t) { stamp.fixed = true; }}};

constexpr Rules<Timestamp>::TakeNumber stamp_numbers[] = {
    [](Timestamp& stamp, std::uint64_t ticks) { stamp.ticks = saturated<std::uint16_t>(ticks); }};

constexpr Rules<Timestamp> stamp_rules{stamp_words, stamp_numbers, {}, nullptr, nullptr};

void read_timestamp(Xcp& xcp, BlockReader& reader) {
    Timestamp stamp;
    read_block(reader, stamp_rules, stamp);
    xcp.timestamp = stamp.size == 0 ? std::nullopt : std::optional(stamp);
}

// ---- DAQ: EVENT ----

struct EventDraft : Event {
    std::uint64_t cycle = 0;
    std::uint64_t unit = 0;
};

// A cycle below one nanosecond is one nanosecond: it is cyclic.
std::uint64_t nanoseconds_of(std::uint64_t cycle, std::uint64_t unit) {
    static constexpr std::uint64_t unit_ps[] = {1'000,
                                                10'000,
                                                100'000,
                                                1'000'000,
                                                10'000'000,
                                                100'000'000,
                                                1'000'000'000,
                                                10'000'000'000,
                                                100'000'000'000,
                                                1'000'000'000'000,
                                                1,
                                                10,
                                                100};
    if (unit >= std::size(unit_ps) || cycle == 0)
        return 0;
    const std::uint64_t count = saturated<std::uint16_t>(cycle); // so that it cannot overflow
    return std::max<std::uint64_t>(count * unit_ps[unit] / 1000, 1);
}

constexpr Rules<EventDraft>::Word packed_words[] = {
    {"MANDATORY", [](EventDraft& event, std::uint64_t) { event.packed = true; }}};

constexpr Rules<EventDraft> packed_rules{packed_words, {}, {}, nullptr, nullptr};

constexpr Rules<EventDraft>::Nested event_blocks[] = {
    {"DAQ_PACKED_MODE",
     [](EventDraft& event, BlockReader& reader) { read_block(reader, packed_rules, event); }}};

constexpr Rules<EventDraft>::Word event_words[] = {
    {"STIM", [](EventDraft& event, std::uint64_t) { event.daq = false; }}};

constexpr Rules<EventDraft>::TakeNumber event_numbers[] = {
    [](EventDraft& event, std::uint64_t number) {
        event.number = saturated<std::uint16_t>(number);
    },
    pass_over<EventDraft>, // most DAQ lists
    [](EventDraft& event, std::uint64_t cycle) { event.cycle = cycle; },
    [](EventDraft& event, std::uint64_t unit) { event.unit = unit; }};

void take_event_name(EventDraft& event, std::size_t position, std::string text) {
    if (position < 2)
        (position == 0 ? event.name : event.shortName) = std::move(text);
}

constexpr Rules<EventDraft> event_rules{event_words, event_numbers, event_blocks, take_event_name,
                                        nullptr};

void read_event(Xcp& xcp, BlockReader& reader) {
    EventDraft event;
    read_block(reader, event_rules, event);
    event.cycle_ns = nanoseconds_of(event.cycle, event.unit);
    xcp.events.push_back(std::move(event));
}

// ---- DAQ ----

void take_dynamic(Xcp& xcp, std::uint64_t dynamic) {
    xcp.dynamic = dynamic != 0;
}

void take_identification(Xcp& xcp, std::uint64_t field) {
    xcp.identificationField = static_cast<IdentificationField>(field);
}

void take_entry_granularity(Xcp& xcp, std::uint64_t bytes) {
    xcp.entryGranularity = static_cast<std::uint8_t>(bytes);
}

enum class Overload : std::uint64_t { none, pid, event };

void take_overload(Xcp& xcp, std::uint64_t overload) {
    xcp.overloadInPid = overload == static_cast<std::uint64_t>(Overload::pid);
    xcp.overloadAsEvent = overload == static_cast<std::uint64_t>(Overload::event);
}

constexpr std::uint64_t number_of(IdentificationField field) {
    return static_cast<std::uint64_t>(field);
}

constexpr Rules<Xcp>::Word daq_words[] = {
    {"STATIC", take_dynamic, 0},
    {"DYNAMIC", take_dynamic, 1},
    {"IDENTIFICATION_FIELD_TYPE_ABSOLUTE", take_identification,
     number_of(IdentificationField::absolute)},
    {"IDENTIFICATION_FIELD_TYPE_RELATIVE_BYTE", take_identification,
     number_of(IdentificationField::relative_byte)},
    {"IDENTIFICATION_FIELD_TYPE_RELATIVE_WORD", take_identification,
     number_of(IdentificationField::relative_word)},
    {"IDENTIFICATION_FIELD_TYPE_RELATIVE_WORD_ALIGNED", take_identification,
     number_of(IdentificationField::relative_word_aligned)},
    {"GRANULARITY_ODT_ENTRY_SIZE_DAQ_BYTE", take_entry_granularity, 1},
    {"GRANULARITY_ODT_ENTRY_SIZE_DAQ_WORD", take_entry_granularity, 2},
    {"GRANULARITY_ODT_ENTRY_SIZE_DAQ_DWORD", take_entry_granularity, 4},
    {"GRANULARITY_ODT_ENTRY_SIZE_DAQ_DLONG", take_entry_granularity, 8},
    {"NO_OVERLOAD_INDICATION", take_overload, static_cast<std::uint64_t>(Overload::none)},
    {"OVERLOAD_INDICATION_PID", take_overload, static_cast<std::uint64_t>(Overload::pid)},
    {"OVERLOAD_INDICATION_EVENT", take_overload, static_cast<std::uint64_t>(Overload::event)}};

constexpr Rules<Xcp>::TakeNumber daq_numbers[] = {
    [](Xcp& xcp, std::uint64_t lists) { xcp.maxDaq = saturated<std::uint16_t>(lists); },
    [](Xcp& xcp, std::uint64_t events) { xcp.maxEventChannel = saturated<std::uint16_t>(events); },
    [](Xcp& xcp, std::uint64_t lists) { xcp.minDaq = saturated<std::uint8_t>(lists); },
    [](Xcp& xcp, std::uint64_t bytes) { xcp.maxEntrySize = saturated<std::uint8_t>(bytes); }};

constexpr Rules<Xcp>::Nested daq_blocks[] = {{"TIMESTAMP_SUPPORTED", read_timestamp},
                                             {"EVENT", read_event}};

constexpr Rules<Xcp> daq_rules{daq_words, daq_numbers, daq_blocks, nullptr, nullptr};

// The events of an earlier block stay when this one has none.
void read_daq(Xcp& xcp, BlockReader& reader) {
    std::vector<Event> earlier = std::exchange(xcp.events, {});
    xcp.hasDaq = true;
    read_block(reader, daq_rules, xcp);
    if (xcp.events.empty())
        xcp.events = std::move(earlier);
}

// ---- IF_DATA ----

constexpr Rules<Xcp>::Nested common_blocks[] = {{"PROTOCOL_LAYER", read_protocol_layer},
                                                {"DAQ", read_daq}};

constexpr Rules<Xcp> common_rules{{}, {}, common_blocks, nullptr, nullptr};

void take_packet_alignment(Xcp& xcp, std::uint64_t bytes) {
    xcp.packetAlignment = static_cast<std::uint8_t>(bytes);
}

constexpr Rules<Xcp>::Word udp_words[] = {{"PACKET_ALIGNMENT_8", take_packet_alignment, 1},
                                          {"PACKET_ALIGNMENT_16", take_packet_alignment, 2},
                                          {"PACKET_ALIGNMENT_32", take_packet_alignment, 4}};

constexpr Rules<Xcp>::TakeNumber udp_numbers[] = {
    pass_over<Xcp>, // version
    [](Xcp& xcp, std::uint64_t port) { xcp.port = saturated<std::uint16_t>(port); }};

void take_bare_address(Xcp& xcp, std::size_t position, std::string text) {
    if (position == 0)
        xcp.address = std::move(text);
}

void take_named_address(Xcp& xcp, std::string_view word, std::string text) {
    if (word == "ADDRESS")
        xcp.address = std::move(text);
    else if (word == "HOST_NAME")
        xcp.hostName = std::move(text);
}

constexpr Rules<Xcp> udp_rules{udp_words, udp_numbers, common_blocks, take_bare_address,
                               take_named_address};

// Of several the first counts.
void read_udp(Xcp& xcp, BlockReader& reader) {
    if (xcp.port)
        return reader.skip_block();
    read_block(reader, udp_rules, xcp);
}

constexpr Rules<Xcp>::Nested transport_blocks[] = {{"XCP_ON_UDP_IP", read_udp}};

constexpr Rules<Xcp> transport_rules{{}, {}, transport_blocks, nullptr, nullptr};

// First what is common, wherever it stands, then what overrules it.
Xcp read_if_data(const SourceFiles& files, const Block& block) {
    Xcp xcp;
    for (const Rules<Xcp>* rules : {&common_rules, &transport_rules}) {
        BlockReader reader(files, block);
        read_block(reader, *rules, xcp);
    }
    return xcp;
}

} // namespace

Xcp read_xcp(const SourceFiles& files, const std::vector<Block>& ifData, Warnings& warnings) {
    std::optional<Xcp> taken;
    const Block* place = nullptr;
    std::size_t count = 0;
    for (const Block& block : ifData) {
        if (block.name != "XCP" && block.name != "XCPplus")
            continue;
        ++count;
        if (taken && taken->port)
            continue;
        Xcp xcp = read_if_data(files, block);
        if (taken && !xcp.port)
            continue;
        taken = std::move(xcp);
        place = &block;
    }
    if (count > 1)
        warnings.add(files.fault(place->token(), "of " + std::to_string(count) +
                                                     " IF_DATA for XCP this one is taken"));
    return taken.value_or(Xcp{});
}

} // namespace a2l
