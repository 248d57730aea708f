#include "recorded_lists.h"

#include <map>
#include <set>

namespace task {

using halmor_standin::Variable;
using halmor_standin::VariableStore;

namespace {

RecordedList named_list(const SpecFile& spec, int number) {
    for (const ListSection& list : spec.lists)
        if (list.daqList == number)
            return {list.name, list.trigger, {}};
    return {"LIST" + std::to_string(number + 1), "", {}};
}

} // namespace

std::vector<RecordedList> recorded_lists(const Configuration& configuration) {
    std::map<int, RecordedList> lists;
    std::set<std::string> taken;
    for (const TableLine& line : configuration.table) {
        const auto* place = std::get_if<MeasurementLine>(&line.call);
        if (place == nullptr || !taken.insert(place->name).second)
            continue;
        const Variable* variable = VariableStore::instance().find(place->name);
        if (variable == nullptr)
            continue; // a filler
        auto list = lists.find(place->daqNum);
        if (list == lists.end())
            list =
                lists.emplace(place->daqNum, named_list(configuration.spec, place->daqNum)).first;
        const auto unit = configuration.units.find(place->name);
        list->second.variables.push_back(
            {variable, unit == configuration.units.end() ? "" : unit->second});
    }
    std::vector<RecordedList> found;
    found.reserve(lists.size());
    for (auto& [number, list] : lists)
        found.push_back(std::move(list));
    return found;
}

} // namespace task
