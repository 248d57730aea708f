#include "measurement.h"

#include "block_reader.h"
#include "token_values.h"

#include <string_view>
#include <utility>

namespace a2l {

namespace {

struct Draft : Measurement {
    Token ignored;
    Token arraySize;
};

using Field = Token Draft::*;

constexpr Field leading_fields[] = {&Draft::name,       &Draft::ignored, &Draft::type,
                                    &Draft::conversion, &Draft::ignored, &Draft::ignored,
                                    &Draft::lower,      &Draft::upper};

// Keywords with one value. The ignored ones take a word that could pass for a keyword.
constexpr std::pair<std::string_view, Field> named_fields[] = {
    {"ECU_ADDRESS", &Draft::address},
    {"ECU_ADDRESS_EXTENSION", &Draft::addressExtension},
    {"ADDRESS_TYPE", &Draft::addressType},
    {"BYTE_ORDER", &Draft::byteOrder},
    {"BIT_MASK", &Draft::bitMask},
    {"PHYS_UNIT", &Draft::unit},
    {"DISPLAY_IDENTIFIER", &Draft::displayIdentifier},
    {"LAYOUT", &Draft::layout},
    {"ARRAY_SIZE", &Draft::arraySize},
    {"REF_MEMORY_SEGMENT", &Draft::ignored}};

class MeasurementReader {
  public:
    MeasurementReader(const SourceFiles& files, const Block& block) : reader_(files, block) {}

    Measurement read() {
        for (const Field field : leading_fields)
            draft_.*field = reader_.value();
        for (Token token = reader_.next(); token.kind != TokenKind::end_of_text;
             token = reader_.next()) {
            if (token.kind == TokenKind::begin)
                take_block(token.text);
            else if (token.kind == TokenKind::word)
                take_keyword(token.text);
        }
        if (draft_.dimensions.empty())
            take_dimension(draft_.arraySize);
        while (!draft_.dimensions.empty() && draft_.dimensions.back() == 1)
            draft_.dimensions.pop_back();
        return std::move(draft_);
    }

  private:
    void take_keyword(std::string_view keyword) {
        for (const auto& [name, field] : named_fields)
            if (name == keyword)
                draft_.*field = reader_.value();
        if (keyword == "MATRIX_DIM")
            while (take_dimension(reader_.peek()))
                reader_.next();
    }

    bool take_dimension(const Token& token) {
        const auto size = to_integer(token.text);
        if (token.kind != TokenKind::word || !size)
            return false;
        draft_.dimensions.push_back(saturated<std::uint32_t>(*size));
        return true;
    }

    void take_block(std::string_view keyword) {
        draft_.isVirtual |= keyword == "VIRTUAL";
        const std::string_view vendor =
            keyword == "IF_DATA" ? reader_.value().text : std::string_view();
        if (vendor == "XCP" || vendor == "XCPplus")
            take_events();
        else
            reader_.skip_block();
    }

    // The list of available events names what could be chosen, and is no choice.
    void take_events() {
        bool chosen = false;
        Token last;
        for (std::size_t depth = 1; depth > 0;) {
            const Token token = reader_.next();
            if (token.kind == TokenKind::end_of_text)
                return;
            depth += token.kind == TokenKind::begin;
            depth -= token.kind == TokenKind::end;
            if (token.text.ends_with("_EVENT_LIST"))
                chosen = token.kind != TokenKind::end && token.text != "AVAILABLE_EVENT_LIST";
            else if (chosen && last.text == "EVENT" && !draft_.event)
                take_event(token.text);
            last = token;
        }
    }

    void take_event(std::string_view word) {
        const auto number = to_integer(word);
        if (number && *number <= std::numeric_limits<std::uint16_t>::max())
            draft_.event = static_cast<std::uint16_t>(*number);
    }

    BlockReader reader_;
    Draft draft_;
};

} // namespace

Measurement read_measurement(const SourceFiles& files, const Block& block) {
    return MeasurementReader(files, block).read();
}

Token read_default_byte_order(const SourceFiles& files, const Block& modCommon) {
    BlockReader reader(files, modCommon);
    for (Token token = reader.next(); token.kind != TokenKind::end_of_text; token = reader.next()) {
        if (token.kind == TokenKind::begin)
            reader.skip_block();
        else if (token.kind == TokenKind::word && token.text == "BYTE_ORDER")
            return reader.value();
    }
    return {};
}

} // namespace a2l
