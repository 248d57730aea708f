// Values that arrive in raw words, against the library's own conversion of values of the same size.

#include "host/standin/variable_store.h"
#include "ratios.h"
#include "task/configuration/raw_words.h"
#include "workload.h"

#include <string>

namespace bench {

namespace {

using halmor_standin::RawForm;
using halmor_standin::RawType;
using halmor_standin::VariableKind;
using halmor_standin::VariableStore;

constexpr int values = 32; // of a packet
constexpr std::size_t rounds = 2000;

// The lines of a table for one ODT of real values, with a type for raw words.
std::vector<task::TableLine> table_of(const std::string& prefix, int size,
                                      const std::optional<RawType>& type) {
    std::vector<task::TableLine> table;
    for (int index = 0; index < values; ++index) {
        const std::string name = prefix + std::to_string(index);
        task::ConversionLine conversion{name, 0, 0, 0.5, 10.0, 0, 1, -1e300, 1e300};
        if (type)
            conversion.type = {*type};
        table.push_back({0, task::MeasurementLine{name, 0, 0, index, size, 0}});
        table.push_back({0, conversion});
    }
    return table;
}

// Into the library, and the variables into the stand-in where they are not there yet.
void configure(const std::vector<task::TableLine>& table) {
    task::VariableKinds kinds;
    for (const task::TableLine& line : table)
        if (const auto* m = std::get_if<task::MeasurementLine>(&line.call))
            kinds.emplace(m->name, VariableKind::real);
    const task::RawForms forms = raw_forms(table, kinds, "");
    for (const auto& [name, kind] : kinds)
        if (VariableStore::instance().find(name) == nullptr)
            VariableStore::instance().define(name, kind, "",
                                             forms.contains(name) ? std::optional(forms.at(name))
                                                                  : std::nullopt);
    clear_table();
    for (const task::TableLine& line : library_calls(table, forms))
        if (const auto* m = std::get_if<task::MeasurementLine>(&line.call))
            api_xcp_daq::addMeasurement(m->name, m->daqNum, m->odtNum, m->odtEntryIndex, m->size,
                                        m->daqMode);
        else if (const auto* c = std::get_if<task::ConversionLine>(&line.call))
            api_xcp_daq::addComputeMethod(c->name, c->daqNum, c->computeInt1, c->factor, c->offset,
                                          c->computeInt2, c->byteOrder, c->lowerLimit,
                                          c->upperLimit);
}

Prepare decoding(const std::string& prefix, int size, const std::optional<RawType>& type = {}) {
    return [prefix, size, type] {
        configure(table_of(prefix, size, type));
        return [frame = packet_for(0, 0)] {
            return seconds_of([&] {
                for (std::size_t i = 0; i < rounds; ++i)
                    api_xcp_daq::processFrame(frame, nullptr);
            });
        };
    };
}

} // namespace

void add_values() {
    const std::size_t items = rounds * values;
    for (const RawType type : {RawType::sword, RawType::slong, RawType::float32_ieee,
                               RawType::float16_ieee, RawType::float64_ieee}) {
        const std::string name = name_of(type);
        const int size = static_cast<int>(size_of(type));
        const Row row{"values", name + " in words, a value",
                      size == 8 ? "reported" : "at least 0.7", false, true};
        add(row, "library", items, decoding(name, size, type));
        add(row, "floor", items, decoding("unsigned" + std::to_string(size) + "_", size));
    }
}

} // namespace bench
