#include "report.h"

#include "api_xcp_daq.h"
#include "host/standin/task_services.h"
#include "host/standin/variable_store.h"
#include "task/sources/library_feed.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iterator>
#include <vector>

namespace task {

namespace {

using halmor_standin::Sample;
using halmor_standin::Variable;
using halmor_standin::VariableStore;

std::string value_text(const Sample& sample) {
    return sample.updates == 0 ? "-" : fmt::format("{:.15g}", sample.value);
}

std::string time_text(const timespec& time) {
    return fmt::format("{}.{:09}", time.tv_sec, time.tv_nsec);
}

std::string time_text(const Sample& sample) {
    return sample.updates == 0 ? "never" : time_text(sample.sampleTime);
}

std::vector<std::string> variables_updated(std::uint64_t times) {
    std::vector<std::string> names;
    for (const Variable& variable : VariableStore::instance().variables())
        if (variable.read().updates == times)
            names.push_back(variable.name());
    return names;
}

// The first few; the table shows the others.
std::string first_names(const std::vector<std::string>& names) {
    constexpr std::size_t shown = 8;
    const auto end = names.begin() + static_cast<std::ptrdiff_t>(std::min(names.size(), shown));
    const std::string text = fmt::format("{}", fmt::join(names.begin(), end, ", "));
    return names.size() <= shown ? text : fmt::format("{} and {} more", text, names.size() - shown);
}

bool anything_lost(const RunCounts& counts) {
    return counts.messages.missing + counts.messages.cutOff + counts.losses.kernelDrops +
               counts.failures + counts.waiting >
           0;
}

std::size_t unbound_entries() {
    std::size_t count = 0;
    for (const xcpDAQList& list : appData.daqList)
        count += static_cast<std::size_t>(
            std::count_if(list.odtEntryMap.begin(), list.odtEntryMap.end(), [](const auto& place) {
                return place.second->hostVar == nullptr && place.second->name != tick_entry;
            }));
    return count;
}

} // namespace

std::string remarks(const RunCounts& counts) {
    std::string text;
    if (counts.misfits || counts.untimed > 0)
        text += "  misfit";
    if (!counts.state.empty())
        text += "  " + counts.state;
    if (counts.gaps > 0)
        text += fmt::format("  {} gaps", counts.gaps);
    if (const std::uint64_t foreign = counts.losses.foreign; foreign > 0)
        text += fmt::format("  {} datagrams from elsewhere not taken", foreign);
    return text;
}

std::string progress_line(const RunCounts& now, const RunCounts& before) {
    const double interval = std::max(now.seconds - before.seconds, 1e-3);
    return fmt::format("{:5.1f} s  {} datagrams  {} DAQ packets  {} values  {:.0f} values/s  "
                       "{} CTR gaps  {} kernel drops  {} waiting{}\n",
                       now.seconds, now.messages.datagrams, now.messages.daqPackets, now.values,
                       static_cast<double>(now.values - before.values) / interval,
                       now.messages.gaps, now.losses.kernelDrops, now.waiting, remarks(now));
}

std::string variable_table() {
    const auto& variables = VariableStore::instance().variables();
    std::size_t width = 8;
    for (const Variable& variable : variables)
        width = std::max(width, variable.name().size());
    std::string text;
    const auto out = std::back_inserter(text);
    fmt::format_to(out, "{:{}}  {:>22}  {:>21}  {:>10}\n", "variable", width, "value",
                   "sample time (s)", "updates");
    for (const Variable& variable : variables) {
        const Sample sample = variable.read();
        fmt::format_to(out, "{:{}}  {:>22}  {:>21}  {:>10}\n", variable.name(), width,
                       value_text(sample), time_text(sample), sample.updates);
    }
    if (const std::size_t unbound = unbound_entries(); unbound > 0)
        fmt::format_to(out, "fillers: {} (entries of the table that no variable takes)\n", unbound);
    return text;
}

constexpr double shortest_proof = 10.0; // seconds, of what a clock does

static double milliseconds(std::chrono::nanoseconds duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

// Of a list, in the time in which any list came.
static double expected_samples(const TimingWatch::Spans& spans, std::uint64_t cycle_ns) {
    return static_cast<double>(spans.nanoseconds) / static_cast<double>(cycle_ns) +
           static_cast<double>(spans.sessions);
}

static std::string timing_text(const RunCounts& counts, const Findings& findings) {
    std::string text;
    const auto out = std::back_inserter(text);
    const auto samples = findings.timing.samples();
    const auto spans = findings.timing.spans();
    for (std::size_t i = 0; i < findings.lists.size(); ++i) {
        const auto& [name, cycle_ns] = findings.lists[i];
        fmt::format_to(out, "samples       {} of {}", samples[i], name);
        if (cycle_ns > 0)
            fmt::format_to(out, ", {:.0f} expected", std::floor(expected_samples(spans, cycle_ns)));
        text += '\n';
    }
    if (const auto clocks = findings.timing.clocks(); clocks.seconds >= shortest_proof)
        fmt::format_to(out, "slave clock   {:+.1f} ppm against the host's, over {:.1f} s\n",
                       clocks.drift_ppm, clocks.seconds);
    if (const Delays& delays = counts.order.delays; delays.count() > 0)
        fmt::format_to(out, "held          {:.1f} ms in the median, {:.1f} ms at most (--hold)\n",
                       milliseconds(delays.median()), milliseconds(delays.largest()));
    if (counts.putRight > 0)
        fmt::format_to(out, "put right     {} datagrams that were overtaken\n", counts.putRight);
    return text;
}

std::string closing_counts(const RunCounts& counts, const Findings& findings) {
    const MessageCounts& m = counts.messages;
    std::string text;
    const auto out = std::back_inserter(text);
    fmt::format_to(out, "datagrams     {} ({} bytes)\n", m.datagrams, m.bytes);
    fmt::format_to(out, "messages      {}\n", m.messages);
    fmt::format_to(out, "DAQ packets   {}\n", m.daqPackets);
    fmt::format_to(out, "values        {}\n", counts.values);
    fmt::format_to(out, "rate          {:.0f} values/s over {:.1f} s\n",
                   static_cast<double>(counts.values) / std::max(counts.seconds, 1e-3),
                   counts.seconds);
    fmt::format_to(out, "CTR gaps      {} ({} messages missing, {} late, {} repeated)\n", m.gaps,
                   m.missing, m.late, m.repeated);
    fmt::format_to(out, "kernel drops  {}\n", counts.losses.kernelDrops);
    fmt::format_to(out, "priority      {} of the worker (recorded, not applied)\n",
                   halmor_standin::recorded_priority());
    if (m.cutOff > 0)
        fmt::format_to(out, "cut off       {} datagrams end inside a message\n", m.cutOff);
    if (counts.losses.foreign > 0)
        fmt::format_to(out, "not taken     {} datagrams from elsewhere\n", counts.losses.foreign);
    if (counts.failures > 0)
        fmt::format_to(out, "not taken     {} datagrams: out of memory\n", counts.failures);
    if (counts.waiting > 0)
        fmt::format_to(out, "not decoded   {} frames\n", counts.waiting);
    if (counts.notices.events + counts.notices.services > 0)
        fmt::format_to(out, "slave said    {} events, {} service requests\n", counts.notices.events,
                       counts.notices.services);
    text += timing_text(counts, findings);
    for (const SampleTimeWatch::Gap& gap : findings.times.first_gaps())
        fmt::format_to(out, "gap           from {} to {}: {}\n", time_text(gap.from),
                       time_text(gap.to), gap.why);
    for (const std::string& line : findings.limits.lines())
        fmt::format_to(out, "limit         {}\n", line);
    for (const std::string& line : findings.notes)
        fmt::format_to(out, "note          {}\n", line);
    return text;
}

// What is usual between two datagrams, five times over.
static double longest_silence(const RunCounts& counts) {
    constexpr double least = 2.0;
    return std::max(least, 5 * counts.seconds / static_cast<double>(counts.messages.datagrams));
}

// Of the slave's clock, and of the samples that it should have taken.
static std::vector<std::string> timing_doubts(const Findings& findings) {
    constexpr double greatest_drift = 1000.0; // ppm
    constexpr double least_part = 0.99;       // of the samples
    std::vector<std::string> lines;
    const auto samples = findings.timing.samples();
    const auto spans = findings.timing.spans();
    for (std::size_t i = 0; i < findings.lists.size(); ++i) {
        const auto& [name, cycle_ns] = findings.lists[i];
        const double expected = cycle_ns == 0 ? 0 : std::floor(expected_samples(spans, cycle_ns));
        if (static_cast<double>(samples[i]) <
            least_part * expected - static_cast<double>(spans.sessions))
            lines.push_back(fmt::format("{}: {} samples came of {:.0f} that its cycle has", name,
                                        samples[i], expected));
    }
    const auto clocks = findings.timing.clocks();
    if (clocks.jumps > 0)
        lines.push_back(fmt::format("the slave's clock jumped {} times against the host's, by up "
                                    "to {:+.3f} s",
                                    clocks.jumps, clocks.largestJump));
    if (clocks.seconds >= shortest_proof && std::abs(clocks.drift_ppm) > greatest_drift)
        lines.push_back(
            fmt::format("the slave's clock runs {:+.0f} ppm against the host's", clocks.drift_ppm));
    return lines;
}

std::vector<std::string> doubts(const RunCounts& counts, const Findings& findings) {
    const SampleTimeWatch& times = findings.times;
    std::vector<std::string> lines;
    if (counts.messages.daqPackets == 0)
        lines.emplace_back("no DAQ packet came");
    else if (counts.silence > longest_silence(counts))
        lines.push_back(fmt::format("nothing came in the last {:.1f} s", counts.silence));
    if (anything_lost(counts))
        lines.emplace_back("packets were lost (see the counts)");
    if (const auto overloads = counts.messages.overloads + counts.losses.overloads; overloads > 0)
        lines.push_back(
            fmt::format("the slave reported an overload {} times: it lost samples", overloads));
    lines.insert(lines.end(), findings.doubts.begin(), findings.doubts.end());
    if (counts.messages.terminations > 0)
        lines.emplace_back("the slave said that it ended the session");
    if (counts.messages.late > 0)
        lines.push_back(fmt::format("{} messages came out of order", counts.messages.late));
    if (counts.messages.repeated > 0)
        lines.push_back(fmt::format("{} messages came twice", counts.messages.repeated));
    for (std::string& line : findings.packets.doubts())
        lines.push_back(std::move(line));
    if (counts.untimed > 0)
        lines.push_back(fmt::format("{} values without a sample time", counts.untimed));
    if (counts.order.raised > 0)
        lines.push_back(fmt::format("{} samples came later than they could be held: their time was "
                                    "raised, by up to {:.6f} s (--hold)",
                                    counts.order.raised,
                                    static_cast<double>(counts.order.largestRaise_ns) / 1e9));
    if (counts.order.overflows > 0)
        lines.push_back(
            fmt::format("{} samples could not be held for want of memory", counts.order.overflows));
    if (counts.losses.untold > 0)
        lines.push_back(fmt::format("{} samples came after a pause of several turns of the slave's "
                                    "timestamp: their time is a guess",
                                    counts.losses.untold));
    if (counts.gaps > 0)
        lines.push_back(fmt::format("the slave was away {} times", counts.gaps));
    for (std::string& line : timing_doubts(findings))
        lines.push_back(std::move(line));
    if (times.jumps() > 0)
        lines.push_back(fmt::format("the sample time jumped {} times", times.jumps()));
    for (const SampleTimeWatch::Jump& jump : times.first_jumps())
        lines.push_back(fmt::format("  at {}: from {} to {}", jump.variable, time_text(jump.from),
                                    time_text(jump.to)));
    for (const Variable& variable : VariableStore::instance().variables())
        if (const std::uint64_t held = variable.held_values(); held > 0)
            lines.push_back(fmt::format("{}: {} values beyond 32 bits were held at the ends",
                                        variable.name(), held));
    if (const auto names = variables_updated(0); !names.empty())
        lines.push_back("never updated: " + first_names(names));
    if (const auto names = variables_updated(1); !names.empty())
        lines.push_back("updated only once: " + first_names(names));
    return lines;
}

std::string trust_text(const std::vector<std::string>& doubts) {
    if (doubts.empty())
        return "trust         yes: nothing was lost, every variable was updated, the sample time "
               "ran on\n";
    return fmt::format("trust         no:\n  {}\n", fmt::join(doubts, "\n  "));
}

} // namespace task
