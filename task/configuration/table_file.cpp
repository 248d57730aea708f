#include "table_file.h"

#include "io/file_error.h"
#include "io/text_lines.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string_view>

namespace task {

namespace {

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

  private:
    const std::vector<std::string_view>& fields_;
    std::size_t next_ = 0;
};

std::variant<MeasurementLine, ConversionLine> parse(const std::vector<std::string_view>& fields) {
    FieldReader read(fields);
    // Braced initialisers are evaluated from left to right, which is the order of the fields.
    if (fields.size() == 6)
        return MeasurementLine{read.name(),    read.integer(), read.integer(),
                               read.integer(), read.integer(), read.byte()};
    if (fields.size() == 9)
        return ConversionLine{read.name(),    read.integer(), read.integer(),
                              read.real(),    read.real(),    read.integer(),
                              read.integer(), read.real(),    read.real()};
    throw std::invalid_argument(fmt::format(
        "expected 6 fields (a measurement) or 9 (a conversion), found {}", fields.size()));
}

// A conversion belongs to the measurement of that name in that list.
class KnownMeasurements {
  public:
    void check(const TableLine& line) {
        if (const auto* measurement = std::get_if<MeasurementLine>(&line.call)) {
            names_.emplace(measurement->daqNum, measurement->name);
            return;
        }
        const auto& conversion = std::get<ConversionLine>(line.call);
        if (!names_.contains({conversion.daqNum, conversion.name}))
            throw std::invalid_argument(
                fmt::format("conversion for {}, which DAQ list {} does not have", conversion.name,
                            conversion.daqNum));
    }

  private:
    std::set<std::pair<int, std::string>> names_;
};

std::string line_text(const MeasurementLine& m) {
    return fmt::format("{},{},{},{},{},{}\n", m.name, m.daqNum, m.odtNum, m.odtEntryIndex, m.size,
                       m.daqMode);
}

std::string line_text(const ConversionLine& c) {
    return fmt::format("{},{},{},{},{},{},{},{},{}\n", c.name, c.daqNum, c.computeInt1, c.factor,
                       c.offset, c.computeInt2, c.byteOrder, c.lowerLimit, c.upperLimit);
}

} // namespace

void write_measurement_table(const std::string& path, const std::vector<TableLine>& table) {
    std::ofstream file(path);
    for (const TableLine& line : table) {
        const std::string& name =
            std::visit([](const auto& call) -> const std::string& { return call.name; }, line.call);
        if (name.find_first_of(",#") != std::string::npos)
            throw io::FileError(path, name + ": a table has no names with a comma or #");
        file << std::visit([](const auto& call) { return line_text(call); }, line.call);
    }
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
