#include "live_view.h"

#include "host/standin/variable_store.h"

#include <fmt/format.h>

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace task {

using halmor_standin::Sample;
using halmor_standin::Variable;
using halmor_standin::VariableStore;

namespace {

// Of an ANSI terminal.
namespace escape {
const std::string all_rows_scroll = "\x1b[r";
const std::string clear_screen = "\x1b[2J";
const std::string clear_rest = "\x1b[K"; // of the row
const std::string go_home = "\x1b[H";
const std::string save_cursor = "\x1b\x37";
const std::string restore_cursor = "\x1b\x38";
constexpr const char* go_to_row = "\x1b[{};1H";
constexpr const char* rows_scroll = "\x1b[{};{}r"; // from the first to the last
} // namespace escape

constexpr std::size_t trace_length = 16;
constexpr double rate_seconds = 1.0;
constexpr std::size_t message_rows = 4; // kept for what the library prints

// A row, whose first column takes the names: value, sample time, updates a second, trace.
constexpr const char* row_format = "{:{}}  {:>16}  {:>14}  {:>8}  {}";
constexpr std::size_t other_columns = 2 + 16 + 2 + 14 + 2 + 8 + 2 + trace_length;
constexpr std::size_t shortest_name = 8;
constexpr std::size_t longest_name = 40;

// The last values between their least and their largest, as bars of eight heights.
std::string trace_text(const std::deque<double>& values) {
    static constexpr const char* bars[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    if (values.empty())
        return "";
    const auto [least, largest] = std::minmax_element(values.begin(), values.end());
    std::string text;
    for (const double value : values) {
        const double level = *largest > *least ? (value - *least) / (*largest - *least) : 0.0;
        text += bars[level > 0.0 ? static_cast<std::size_t>(std::min(level, 1.0) * 7.99) : 0];
    }
    return text;
}

// As much of a text as fits into so many columns.
std::string cut(const std::string& text, std::size_t columns) {
    std::size_t end = 0;
    for (; end < text.size(); ++end)
        if ((text[end] & 0xC0) != 0x80 && columns-- == 0) // a character begins
            break;
    return text.substr(0, end);
}

std::string shortened(const std::string& name, std::size_t columns) {
    return cut(name, columns) == name ? name : cut(name, columns - 1) + "~";
}

// What the longest name needs, but no more than the window leaves beside the other columns.
std::size_t name_width(std::size_t width) {
    std::size_t longest = shortest_name;
    for (const Variable& variable : VariableStore::instance().variables())
        longest = std::max(longest, variable.name().size());
    const std::size_t room = width > other_columns ? width - other_columns : 0;
    return std::min(longest, std::clamp(room, shortest_name, longest_name));
}

} // namespace

std::vector<std::string> LiveTable::lines(std::size_t width, std::size_t height,
                                          const RunCounts& counts) {
    const auto& variables = VariableStore::instance().variables();
    histories_.resize(variables.size());
    const std::size_t nameWidth = name_width(width);
    const MessageCounts& m = counts.messages;
    std::vector<std::string> lines = {
        fmt::format("{:.1f} s  {} datagrams  {} DAQ packets  {} values", counts.seconds,
                    m.datagrams, m.daqPackets, counts.values),
        fmt::format("lost: {} messages missing  {} kernel drops   queue: {} waiting{}", m.missing,
                    counts.losses.kernelDrops, counts.waiting, remarks(counts)),
        fmt::format(row_format, "variable", nameWidth, "value", "sample time (s)", "updates", ""),
    };
    const std::size_t room = height > lines.size() + 1 ? height - lines.size() - 1 : 0;
    const std::size_t shown = variables.size() <= room + 1 ? variables.size() : room;
    for (std::size_t i = 0; i < shown; ++i)
        lines.push_back(row(variables[i], counts.seconds, nameWidth));
    if (shown < variables.size())
        lines.push_back(fmt::format("... and {} more", variables.size() - shown));
    for (std::string& line : lines)
        line = cut(line, width);
    return lines;
}

std::string LiveTable::row(const Variable& variable, double seconds, std::size_t nameWidth) {
    const Sample sample = variable.read();
    History& history = histories_[variable.number()];
    history.updates.emplace_back(seconds, sample.updates);
    while (history.updates.size() > 2 && history.updates[1].first <= seconds - rate_seconds)
        history.updates.pop_front();
    const std::string name = shortened(variable.name(), nameWidth);
    if (sample.updates == 0)
        return fmt::format(row_format, name, nameWidth, "never came", "", "", "");
    history.values.push_back(sample.value);
    if (history.values.size() > trace_length)
        history.values.pop_front();
    const auto& [since, before] = history.updates.front();
    const double rate =
        seconds > since ? static_cast<double>(sample.updates - before) / (seconds - since) : 0.0;
    const auto milliseconds = sample.sampleTime.tv_nsec / 1'000'000;
    return fmt::format(row_format, name, nameWidth, fmt::format("{:.10g}", sample.value),
                       fmt::format("{}.{:03}", sample.sampleTime.tv_sec, milliseconds),
                       fmt::format("{:.0f}/s", rate), trace_text(history.values));
}

bool LiveView::possible() {
    const char* terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

// Standard output is shared with the library's lines: each drawing goes out in one piece, and
// leaves the cursor where it was, in the scrolling rows below the table.
void LiveView::draw(const RunCounts& counts) {
    winsize window{};
    ioctl(STDOUT_FILENO, TIOCGWINSZ, &window);
    const std::size_t rows = window.ws_row;
    const std::size_t columns = window.ws_col;
    if (rows <= message_rows + 3 || columns < 20)
        return; // too small to show anything
    const auto lines = table_.lines(columns, rows - message_rows, counts);
    std::string text;
    if (rows != rows_ || columns != columns_) {
        const std::size_t first = lines.size() + 1; // of the rows that scroll
        // What stood there scrolls away instead of being wiped out.
        text = escape::all_rows_scroll + fmt::format(escape::go_to_row, rows) +
               std::string(rows, '\n') + escape::clear_screen +
               fmt::format(escape::rows_scroll, first, rows) +
               fmt::format(escape::go_to_row, first);
    }
    rows_ = rows;
    columns_ = columns;
    text += escape::save_cursor + escape::go_home;
    for (const std::string& line : lines)
        text += line + escape::clear_rest + "\r\n";
    std::cout << text + escape::restore_cursor << std::flush;
}

LiveView::~LiveView() {
    if (rows_ > 0)
        std::cout << escape::all_rows_scroll + fmt::format(escape::go_to_row, rows_) + "\n"
                  << std::flush;
}

} // namespace task
