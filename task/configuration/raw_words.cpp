#include "raw_words.h"

#include "integer_conversion.h"
#include "io/file_error.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <set>
#include <utility>

namespace task {

namespace {

using halmor_standin::RawForm;
using halmor_standin::VariableKind;

constexpr int largest_word = 4; // bytes: eight are a real number of 53 bits for the library

// The library's numbers are unsigned, and of eight bytes it reverses the halves.
bool library_keeps(const ConversionLine& c, VariableKind kind) {
    const bool isUnsigned = !is_signed(c.type->type) && !is_real(c.type->type);
    const bool masked = c.type->bitMask != halmor_standin::every_bit;
    const bool reversedHalves = size_of(c.type->type) == 8 && c.byteOrder == 0;
    return isUnsigned && !masked && !reversedHalves &&
           (kind != VariableKind::integer ||
            inexact_integer(static_cast<int>(size_of(c.type->type)), c).empty());
}

std::optional<RawForm> form_of(const ConversionLine* c) {
    if (c == nullptr || !c->type)
        return {};
    return RawForm{*c->type, c->byteOrder == 0, c->factor, c->offset, c->lowerLimit, c->upperLimit};
}

// By DAQ list and name; the last one of a measurement counts.
using Conversions = std::map<std::pair<int, std::string>, const ConversionLine*>;
Conversions conversions_of(const std::vector<TableLine>& table) {
    Conversions conversions;
    for (const TableLine& line : table)
        if (const auto* conversion = std::get_if<ConversionLine>(&line.call))
            conversions[{conversion->daqNum, conversion->name}] = conversion;
    return conversions;
}

class WordCalls {
  public:
    explicit WordCalls(const RawForms& forms) : forms_(forms) {}

    std::vector<TableLine> expand(const std::vector<TableLine>& table) {
        for (const TableLine& line : table)
            if (const auto* m = std::get_if<MeasurementLine>(&line.call);
                m != nullptr && is_two_words(*m))
                twoWords_[{m->daqNum, m->odtNum}].insert(m->odtEntryIndex);
        for (const TableLine& line : table)
            std::visit([&](const auto& call) { add(line.number, call); }, line.call);
        return std::move(calls_);
    }

  private:
    bool is_two_words(const MeasurementLine& m) const {
        return m.size > largest_word && forms_.contains(m.name);
    }

    // Each value of two words before it in its ODT moves an entry on by one.
    int index_of(const MeasurementLine& m) const {
        const auto found = twoWords_.find({m.daqNum, m.odtNum});
        if (found == twoWords_.end())
            return m.odtEntryIndex;
        const auto& indexes = found->second;
        return m.odtEntryIndex + static_cast<int>(std::distance(
                                     indexes.begin(), indexes.lower_bound(m.odtEntryIndex)));
    }

    void add(std::size_t number, MeasurementLine m) {
        m.odtEntryIndex = index_of(m);
        if (!is_two_words(m))
            return calls_.push_back({number, m});
        m.size = largest_word;
        calls_.push_back({number, m});
        m.name = halmor_standin::second_word_of(m.name);
        ++m.odtEntryIndex;
        calls_.push_back({number, m});
    }

    // The words are the bytes as they came.
    void add(std::size_t number, const ConversionLine& c) {
        const auto form = forms_.find(c.name);
        if (form == forms_.end())
            return calls_.push_back({number, c});
        const int size = static_cast<int>(size_of(form->second.number.type));
        const double highest = std::ldexp(1.0, 8 * std::min(size, largest_word)) - 1.0;
        ConversionLine word{c.name,        c.daqNum, c.computeInt1, 1.0,    0.0,
                            c.computeInt2, 1,        0.0,           highest};
        calls_.push_back({number, word});
        if (size <= largest_word)
            return;
        word.name = halmor_standin::second_word_of(c.name);
        calls_.push_back({number, word});
    }

    const RawForms& forms_;
    std::map<std::pair<int, int>, std::multiset<int>> twoWords_; // entries, by DAQ list and ODT
    std::vector<TableLine> calls_;
};

} // namespace

void leave_to_library(std::vector<TableLine>& table, const VariableKinds& variables) {
    for (TableLine& line : table)
        if (auto* c = std::get_if<ConversionLine>(&line.call); c != nullptr && c->type) {
            const auto found = variables.find(c->name);
            if (library_keeps(*c, found == variables.end() ? VariableKind::real : found->second))
                c->type.reset();
        }
}

RawForms raw_forms(const std::vector<TableLine>& table, const VariableKinds& variables,
                   const std::string& path) {
    const Conversions conversions = conversions_of(table);
    std::map<std::string, std::pair<std::size_t, std::optional<RawForm>>> all;
    RawForms forms;
    for (const TableLine& line : table) {
        const auto* m = std::get_if<MeasurementLine>(&line.call);
        if (m == nullptr || !variables.contains(m->name))
            continue;
        const auto conversion = conversions.find({m->daqNum, m->name});
        const auto form = form_of(conversion == conversions.end() ? nullptr : conversion->second);
        const auto& [first, firstForm] = all.try_emplace(m->name, line.number, form).first->second;
        if (form != firstForm)
            throw io::FileError(
                path, line.number,
                fmt::format("{} has another data type or conversion in line {}", m->name, first));
        if (form)
            forms.emplace(m->name, *form);
    }
    return forms;
}

std::vector<TableLine> library_calls(const std::vector<TableLine>& table, const RawForms& forms) {
    return WordCalls(forms).expand(table);
}

} // namespace task
