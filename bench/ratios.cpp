#include "ratios.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <map>
#include <vector>

namespace bench {

namespace {

struct MeasuredRow {
    Row row;
    std::map<std::string, std::vector<double>> nanoseconds; // of an item, by variant
};

std::deque<MeasuredRow> rows;                                         // in the order of the table
std::map<std::string, std::pair<MeasuredRow*, std::string>> variants; // by the benchmark's name

MeasuredRow& row_of(const Row& row) {
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const MeasuredRow& r) {
        return r.row.benchmark == row.benchmark && r.row.title == row.title;
    });
    return found == rows.end() ? rows.emplace_back(MeasuredRow{row, {}}) : *found;
}

// Noise only adds to the time of one thread. Several fall into one of several rhythms for a while,
// so that their least time would be luck.
double typical(std::vector<double> values, bool threads) {
    const auto place =
        values.begin() + static_cast<std::ptrdiff_t>(threads ? values.size() / 2 : 0);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

class RatioReporter : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const auto variant = variants.find(run.run_name.function_name);
            if (run.run_type != Run::RT_Iteration || variant == variants.end())
                continue;
            const double nanoseconds = 1e9 / run.counters.at("items_per_second").value;
            auto& [row, name] = variant->second;
            row->nanoseconds[name].push_back(nanoseconds);
        }
    }

    void Finalize() override {
        std::printf("%-11s %-31s %11s %9s %6s   %s\n", "benchmark", "case", "library ns",
                    "floor ns", "ratio", "target");
        for (const MeasuredRow& row : rows)
            print(row);
    }

  private:
    static void print(const MeasuredRow& measured) {
        const Row& row = measured.row;
        std::map<std::string, double> times;
        for (const auto& [variant, all] : measured.nanoseconds)
            times[variant] = typical(all, row.threads);
        if (!times.contains("library") || !times.contains("floor"))
            return; // left out by a filter
        const double library = times.at("library");
        const double floor = times.at("floor");
        std::printf("%-11s %-31s %11.1f %9.1f %6.2f   %s", row.benchmark.c_str(), row.title.c_str(),
                    library, floor, row.rate ? floor / library : library / floor,
                    row.reach.c_str());
        if (times.contains("array"))
            std::printf("; over an array %.1f ns, ratio %.2f", times.at("array"),
                        library / times.at("array"));
        if (times.contains("read")) // an item is a byte
            std::printf("; %.0f MB/s, a plain read %.0f MB/s", 1e3 / library,
                        1e3 / times.at("read"));
        if (row.linkSeconds > 0)
            std::printf("; %.2f of a 1 Gbit/s link", row.linkSeconds * 1e9 / library);
        std::printf("\n");
    }
};

} // namespace

void add(const Row& row, const std::string& variant, std::size_t items, Prepare prepare,
         bool once) {
    const std::string name = row.benchmark + "/" + row.title + "/" + variant;
    variants[name] = {&row_of(row), variant};
    auto* registered = benchmark::RegisterBenchmark(
        name.c_str(), [prepare = std::move(prepare), items](benchmark::State& state) {
            const Batch batch = prepare();
            for ([[maybe_unused]] auto round : state)
                state.SetIterationTime(batch());
            state.SetItemsProcessed(static_cast<std::int64_t>(items) * state.iterations());
        });
    registered->UseManualTime();
    if (once)
        registered->Iterations(1);
}

} // namespace bench

int main(int argc, char** argv) {
    bench::add_decode();
    bench::add_frame_path();
    bench::add_network();
    bench::add_growth();
    bench::add_allocator();
    bench::add_output();
    bench::add_form();
    bench::add_a2l();
    bench::add_values();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
}
