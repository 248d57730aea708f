#pragma once
// The measurement table file: the calls that fill the library's measurement table, in the very
// lines that the library writes to its measurement log. docs/formats.md has the format.

#include "host/standin/raw_form.h"

#include <cstddef>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace task {

// Arguments of addMeasurement.
struct MeasurementLine {
    std::string name;
    int daqNum;
    int odtNum;
    int odtEntryIndex;
    int size;
    unsigned char daqMode;
};

// Arguments of addComputeMethod; with a type, which the library does not know, the value takes the
// way of raw_words.h.
struct ConversionLine {
    std::string name;
    int daqNum;
    int computeInt1;
    double factor;
    double offset;
    int computeInt2;
    int byteOrder;
    double lowerLimit;
    double upperLimit;
    std::optional<halmor_standin::RawNumber> type = {};
};

struct TableLine {
    std::size_t number; // in the file, from 1
    std::variant<MeasurementLine, ConversionLine> call;
};

// Throws io::FileError for a file that cannot be read, for the first line that is
// wrong, and for a conversion whose measurement does not come before it or has another size than
// its type.
std::vector<TableLine> read_measurement_table(const std::string& path);

// The tenth field of a conversion: "SWORD", "UWORD 0xff0".
std::string type_text(const halmor_standin::RawNumber& number);

// The table's lines, with all digits.
std::string table_text(const std::vector<TableLine>& table);

// Writes a table that reads back as the same calls, to the last digit. Throws io::FileError.
void write_measurement_table(const std::string& path, const std::vector<TableLine>& table);

} // namespace task
