#include "live_view.h"

#include "variable_store.h"

#include <fmt/format.h>

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace task {

using halmor_standin::Sample;
using halmor_standin::Variable;
using halmor_standin::VariableStore;

namespace {

constexpr std::size_t trace_length = 16;
constexpr double rate_seconds = 1.0;
constexpr std::size_t longest_name = 24;
constexpr std::size_t message_rows = 4; // kept for what the library prints

// The last values between their least and their largest, as bars of eight heights.
std::string trace_text(const std::deque<double>& values) {
    static constexpr const char* bars[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    if (values.empty())
        return "";
    const auto [least, largest] = std::minmax_element(values.begin(), values.end());
    std::string text;
    for (const double value : values) {
        const double level = *largest > *least ? (value - *least) / (*largest - *least) : 0.0;
        text += bars[std::isfinite(level) ? static_cast<std::size_t>(level * 7.99) : 0];
    }
    return text;
}

std::string shortened(const std::string& name) {
    return name.size() <= longest_name ? name : name.substr(0, longest_name - 1) + "~";
}

// Text of one-byte characters, cut at the window's edge.
std::string cut(std::string text, std::size_t width) {
    text.resize(std::min(text.size(), width));
    return text;
}

std::string variable_line(const Variable& variable, const Sample& sample, double rate,
                          const std::deque<double>& trace, std::size_t width) {
    if (sample.updates == 0)
        return cut(
            fmt::format("{:{}}  {:>22}", shortened(variable.name()), longest_name, "never came"),
            width);
    const std::string text = fmt::format(
        "{:{}}  {:>22.12g}  {:>14}.{:03}  {:>9.0f}/s  ", shortened(variable.name()), longest_name,
        sample.value, sample.sampleTime.tv_sec, sample.sampleTime.tv_nsec / 1000000, rate);
    return text.size() + trace_length <= width ? text + trace_text(trace) : cut(text, width);
}

} // namespace

std::vector<std::string> LiveTable::lines(std::size_t width, std::size_t height,
                                          const RunCounts& counts) {
    const auto& variables = VariableStore::instance().variables();
    histories_.resize(variables.size());
    std::vector<std::string> lines;
    lines.push_back(
        cut(fmt::format("{:.1f} s  {} datagrams  {} DAQ packets  {} values  {} missing  "
                        "{} kernel drops  {} waiting",
                        counts.seconds, counts.messages.datagrams, counts.messages.daqPackets,
                        counts.values, counts.messages.missing, counts.losses.kernelDrops,
                        counts.waiting),
            width));
    lines.push_back(cut(fmt::format("{:{}}  {:>22}  {:>18}  {:>11}", "variable", longest_name,
                                    "value", "sample time (s)", "updates"),
                        width));
    const std::size_t room = height > lines.size() + 1 ? height - lines.size() - 1 : 0;
    const std::size_t shown = variables.size() <= room + 1 ? variables.size() : room;
    for (std::size_t i = 0; i < shown; ++i) {
        const Sample sample = variables[i].read();
        History& history = histories_[i];
        history.updates.emplace_back(counts.seconds, sample.updates);
        while (history.updates.size() > 2 &&
               history.updates[1].first <= counts.seconds - rate_seconds)
            history.updates.pop_front();
        if (sample.updates > 0)
            history.values.push_back(sample.value);
        if (history.values.size() > trace_length)
            history.values.pop_front();
        const auto& [since, before] = history.updates.front();
        const double rate = counts.seconds > since ? static_cast<double>(sample.updates - before) /
                                                         (counts.seconds - since)
                                                   : 0.0;
        lines.push_back(variable_line(variables[i], sample, rate, history.values, width));
    }
    if (shown < variables.size())
        lines.push_back(cut(fmt::format("... and {} more", variables.size() - shown), width));
    return lines;
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
    if (rows != rows_ || columns != columns_)
        text = fmt::format("\x1b[r\x1b[2J\x1b[{};{}r\x1b[{};1H", lines.size() + 1, rows,
                           lines.size() + 1);
    rows_ = rows;
    columns_ = columns;
    text += "\x1b"
            "7\x1b[H";
    for (const std::string& line : lines)
        text += line + "\x1b[K\r\n";
    text += "\x1b"
            "8";
    std::cout << text << std::flush;
}

LiveView::~LiveView() {
    if (rows_ > 0)
        std::cout << fmt::format("\x1b[r\x1b[{};1H\n", rows_) << std::flush;
}

} // namespace task
