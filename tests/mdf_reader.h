#pragma once
// Reads a measurement file (ASAM MDF 4.1) by its links alone, and throws std::runtime_error at
// whatever does not hold of it.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct MdfRecord {
    double seconds; // from the start
    std::vector<std::optional<double>> values;

    bool operator==(const MdfRecord&) const = default;
};

struct MdfList {
    std::string name;                  // and "/" and the comment
    std::vector<std::string> channels; // "name integer" or "name real unit"
    std::vector<MdfRecord> records;
};

struct MdfGap {
    double begin;
    double end;
};

struct MdfContents {
    bool finalised;
    std::int64_t start; // nanoseconds since 1970
    std::vector<MdfList> lists;
    std::vector<MdfGap> gaps;
};

MdfContents read_mdf(const std::string& bytes);
