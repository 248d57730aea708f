// The decoder: cost of an entry, and how it grows with the table.

#include "ratios.h"
#include "workload.h"

#include <cmath>
#include <memory>

namespace bench {

namespace {

constexpr std::size_t rounds = 2000; // packets of a batch

Batch repeated(std::function<void()> work) {
    return [work = std::move(work)] {
        return seconds_of([&] {
            for (std::size_t i = 0; i < rounds; ++i)
                work();
        });
    };
}

void add_odt_of(int entries) {
    const Row row{"decode", std::to_string(entries) + " entries", "at most 1.1"};
    const std::size_t items = rounds * static_cast<std::size_t>(entries);
    const auto prepare = [entries] {
        clear_table();
        add_mixed_odt(0, 0, entries);
        return packet_for(0, 0);
    };
    add(row, "library", items, [prepare] {
        return repeated([frame = prepare()] { api_xcp_daq::processFrame(frame, nullptr); });
    });
    add(row, "floor", items, [prepare] {
        return repeated(
            [frame = prepare()] { decode_map_by_hand(appData.daqList[0].odtEntryMap, frame); });
    });
    add(row, "array", items, [prepare] {
        const Frame frame = prepare();
        std::vector<const odt_table_entry*> entries_;
        for (const auto& [place, entry] : appData.daqList[0].odtEntryMap)
            entries_.push_back(entry);
        return repeated([frame, entries_] { decode_array_by_hand(entries_, frame); });
    });
}

// A table of lists x ODTs x entries, whose packets come in turn.
struct TableSize {
    int lists;
    int odts;
    int entries;
    int measurements() const { return lists * odts * entries; }
};

Batch all_packets(const TableSize& size) {
    clear_table();
    auto packets = std::make_shared<std::vector<Frame>>();
    for (int list = 0; list < size.lists; ++list)
        for (int odt = 0; odt < size.odts; ++odt) {
            add_mixed_odt(list, odt, size.entries);
            packets->push_back(packet_for(list, odt));
        }
    return [packets] {
        return seconds_of([&] {
            for (std::size_t i = 0; i < rounds; ++i)
                api_xcp_daq::processFrame((*packets)[i % packets->size()], nullptr);
        });
    };
}

void add_growth_to(const std::string& title, const TableSize& small, const TableSize& large) {
    const double logarithm =
        std::log(large.measurements() + 1) / std::log(small.measurements() + 1);
    char reach[40];
    std::snprintf(reach, sizeof reach, "at most %.1f (logarithm)", logarithm);
    const Row row{"growth", title, reach};
    const auto items = [](const TableSize& size) {
        return rounds * static_cast<std::size_t>(size.entries);
    };
    add(row, "floor", items(small), [small] { return all_packets(small); });
    add(row, "library", items(large), [large] { return all_packets(large); });
}

} // namespace

void add_decode() {
    for (const int entries : {2, 8, 32, 60})
        add_odt_of(entries);
}

void add_growth() {
    add_growth_to("1 to 200 entries a packet", {1, 1, 1}, {1, 1, 200});
    add_growth_to("1 to 190 ODTs", {1, 1, 10}, {1, 190, 10});
    add_growth_to("1 to 4 lists", {1, 1, 10}, {4, 1, 10});
    add_growth_to("10 to 100 measurements", {1, 1, 10}, {1, 10, 10});
    add_growth_to("10 to 1000 measurements", {1, 1, 10}, {4, 25, 10});
    add_growth_to("10 to 5000 measurements", {1, 1, 10}, {4, 125, 10});
}

} // namespace bench
