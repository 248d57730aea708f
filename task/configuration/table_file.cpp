#include "table_file.h"

#include "io/file_error.h"
#include "io/text_lines.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string_view>

namespace task {

namespace {

using halmor_standin::RawNumber;

constexpr std::string_view end_of_table = "---------";
constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::vector<std::string_view> fields_of(std::string_view line) {
    std::vector<std::string_view> fields;
    for (std::size_t start = 0; start <= line.size();) {
        const std::size_t end = std::min(line.find(',', start), line.size());
        fields.push_back(trimmed(line.substr(start, end - start)));
        start = end + 1;
    }
    return fields;
}

// Takes the fields of a line one by one; each must be wholly what it is taken as.
class FieldReader {
  public:
    explicit FieldReader(const std::vector<std::string_view>& fields) : fields_(fields) {}

    std::string name() {
        const std::string_view field = fields_[next_++];
        if (field.empty())
            throw std::invalid_argument("no measurement name");
        return std::string(field);
    }

    template <class Number>
    Number number(const char* meaning) {
        const std::string_view field = fields_[next_++];
        Number value{};
        const auto parsed = std::from_chars(field.data(), field.data() + field.size(), value);
        if (parsed.ec != std::errc{} || parsed.ptr != field.data() + field.size())
            throw std::invalid_argument(
                fmt::format("field {} is no {}: \"{}\"", next_, meaning, field));
        return value;
    }
    int integer() { return number<int>("integer"); }
    double real() { return number<double>("number"); }
    unsigned char byte() { return number<unsigned char>("number from 0 to 255"); }
    // "SWORD", "UWORD 0x0FF0", or nothing where the line has ended.
    std::optional<RawNumber> type() {
        if (next_ == fields_.size())
            return {};
        const std::vector<std::string> words = io::words_of(std::string(fields_[next_++]));
        const auto type = words.empty() ? std::nullopt : halmor_standin::raw_type_named(words[0]);
        if (!type || words.size() > 2)
            throw std::invalid_argument(
                fmt::format("field 10 is no data type: \"{}\"", fields_[next_ - 1]));
        if (words.size() == 1)
            return RawNumber{*type};
        if (is_real(*type))
            throw std::invalid_argument(words[0] + " has no bit mask");
        return RawNumber{*type, bit_mask(words[1])};
    }

  private:
    static std::uint64_t bit_mask(const std::string& word) {
        std::uint64_t mask = 0;
        const bool prefixed = word.starts_with("0x") || word.starts_with("0X");
        const char* const end = word.data() + word.size();
        const auto parsed = std::from_chars(word.data() + (prefixed ? 2 : 0), end, mask, 16);
        if (!prefixed || parsed.ec != std::errc{} || parsed.ptr != end)
            throw std::invalid_argument("the bit mask is no number such as 0x0FF0: " + word);
        return mask;
    }

    const std::vector<std::string_view>& fields_;
    std::size_t next_ = 0;
};

std::variant<MeasurementLine, ConversionLine> parse(const std::vector<std::string_view>& fields) {
    FieldReader read(fields);
    // Braced initialisers are evaluated from left to right, which is the order of the fields.
    if (fields.size() == 6)
        return MeasurementLine{read.name(),    read.integer(), read.integer(),
                               read.integer(), read.integer(), read.byte()};
    if (fields.size() == 9 || fields.size() == 10)
        return ConversionLine{read.name(), read.integer(), read.integer(), read.real(),
                              read.real(), read.integer(), read.integer(), read.real(),
                              read.real(), read.type()};
    throw std::invalid_argument(fmt::format(
        "expected 6 fields (a measurement) or 9 or 10 (a conversion), found {}", fields.size()));
}

// A conversion belongs to the measurement of that name in that list.
class KnownMeasurements {
  public:
    void check(const TableLine& line) {
        if (const auto* measurement = std::get_if<MeasurementLine>(&line.call)) {
            sizes_[{measurement->daqNum, measurement->name}] = measurement->size;
            return;
        }
        const auto& conversion = std::get<ConversionLine>(line.call);
        const auto found = sizes_.find({conversion.daqNum, conversion.name});
        if (found == sizes_.end())
            throw std::invalid_argument(
                fmt::format("conversion for {}, which DAQ list {} does not have", conversion.name,
                            conversion.daqNum));
        if (conversion.type)
            check_size(conversion, found->second);
    }

  private:
    static void check_size(const ConversionLine& conversion, int size) {
        const std::size_t own = size_of(conversion.type->type);
        if (own != static_cast<std::size_t>(size))
            throw std::invalid_argument(fmt::format("{} has {} bytes, {} has {}", conversion.name,
                                                    size, name_of(conversion.type->type), own));
    }

    std::map<std::pair<int, std::string>, int> sizes_;
};

std::string line_text(const MeasurementLine& m) {
    return fmt::format("{},{},{},{},{},{}\n", m.name, m.daqNum, m.odtNum, m.odtEntryIndex, m.size,
                       m.daqMode);
}

std::string line_text(const ConversionLine& c) {
    return fmt::format("{},{},{},{},{},{},{},{},{}{}\n", c.name, c.daqNum, c.computeInt1, c.factor,
                       c.offset, c.computeInt2, c.byteOrder, c.lowerLimit, c.upperLimit,
                       c.type ? fmt::format(",{}", type_text(*c.type)) : "");
}

} // namespace

std::string type_text(const RawNumber& number) {
    return number.bitMask == halmor_standin::every_bit
               ? name_of(number.type)
               : fmt::format("{} {:#x}", name_of(number.type), number.bitMask);
}

std::string table_text(const std::vector<TableLine>& table) {
    std::string text;
    for (const TableLine& line : table)
        text += std::visit([](const auto& call) { return line_text(call); }, line.call);
    return text;
}

void write_measurement_table(const std::string& path, const std::vector<TableLine>& table) {
    for (const TableLine& line : table) {
        const std::string& name =
            std::visit([](const auto& call) -> const std::string& { return call.name; }, line.call);
        if (name.find_first_of(",#") != std::string::npos)
            throw io::FileError(path, name + ": a table has no names with a comma or #");
    }
    std::ofstream file(path);
    file << table_text(table);
    file.close();
    if (file.fail())
        throw io::FileError(path, std::strerror(errno));
}

std::vector<TableLine> read_measurement_table(const std::string& path) {
    std::vector<TableLine> table;
    KnownMeasurements known;
    io::for_each_line(path, [&](std::size_t number, const std::string& text) {
        const std::string_view line = trimmed(io::without_comment(text, '#'));
        if (line == end_of_table)
            return false;
        if (!line.empty()) {
            table.push_back({number, parse(fields_of(line))});
            known.check(table.back());
        }
        return true;
    });
    return table;
}

} // namespace task
