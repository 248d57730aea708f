#pragma once
// Captures for tests, and what the task has recorded of one.

#include "xcp/message.h"

#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace capture {

using Bytes = std::vector<std::uint8_t>;

struct Frame {
    std::uint64_t time_ns;
    Bytes bytes;
};

// A pcap file of nanoseconds.
inline std::string file_of(std::uint32_t linkType, const std::vector<Frame>& frames) {
    std::string file;
    const auto append = [&file](std::uint64_t value) {
        const auto word = static_cast<std::uint32_t>(value);
        file.append(reinterpret_cast<const char*>(&word), sizeof word);
    };
    for (const std::uint32_t word : {0xa1b23c4dU, 0x00040002U, 0U, 0U, 65535U, linkType})
        append(word);
    for (const Frame& frame : frames) {
        append(frame.time_ns / 1'000'000'000);
        append(frame.time_ns % 1'000'000'000);
        append(frame.bytes.size());
        append(frame.bytes.size());
        file.append(frame.bytes.begin(), frame.bytes.end());
    }
    return file;
}

// One line of a recording, without the columns that are empty in it; the line of a gap, which has
// "nan" in all of them, brings nothing.
struct Row {
    std::int64_t time_ns = 0;
    std::map<std::string, double> values;
};

inline std::vector<Row> rows_of(const std::string& csv) {
    std::vector<Row> rows;
    std::vector<std::string> names;
    std::istringstream lines(csv);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> cells;
        std::istringstream fields(line);
        for (std::string cell; std::getline(fields, cell, ',');)
            cells.push_back(cell);
        if (names.empty()) {
            names = cells;
            continue;
        }
        Row& row = rows.emplace_back();
        const std::size_t point = cells[0].find('.');
        row.time_ns = std::stoll(cells[0].substr(0, point)) * 1'000'000'000 +
                      std::stoll(cells[0].substr(point + 1));
        for (std::size_t i = 1; i < cells.size(); ++i)
            if (!cells[i].empty() && cells[i] != "nan")
                row.values[names[i]] = std::stod(cells[i]);
    }
    return rows;
}

} // namespace capture
