#include "api_xcp_daq.h"

#include "classic_locale.h"
#include "daq_list.h"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <iterator>
#include <limits>
#include <memory>
#include <string_view>

using xcp_daq::find_daq_list;

namespace {

constexpr std::int32_t first_entry_byte = 2; // after ODT number and DAQ list number

// Where a variable object of each kind keeps its task's name and the word that marks it as taken.
struct ObjectLayout {
    std::uint16_t kind;
    std::size_t taskName;
    std::size_t marker;
};
constexpr ObjectLayout object_layouts[] = {{1, 224, 54}, {2, 216, 2}, {3, 384, 2}};

void mark_own_variable(const DaqVariable& variable) {
    const auto* layout = std::find_if(std::begin(object_layouts), std::end(object_layouts),
                                      [&](const auto& l) { return l.kind == variable.kind; });
    if (layout == std::end(object_layouts))
        return;
    auto* object = static_cast<char*>(variable.object);
    if (std::string_view(object + layout->taskName) != appData.registeredName)
        return;
    const std::uint16_t marked = 1;
    std::memcpy(object + layout->marker, &marked, sizeof marked);
}

std::int32_t saturate(std::int64_t value) {
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, Limits::min(), Limits::max()));
}

std::int32_t first_byte(const xcpDAQList& list, int odtNum, int odtEntryIndex) {
    if (list.odtEntryMap.empty() || odtEntryIndex == 0)
        return first_entry_byte;
    const std::int64_t previousIndex = std::int64_t{odtEntryIndex} - 1;
    const auto previous = list.odtEntryMap.find({odtNum, saturate(previousIndex)});
    if (previous != list.odtEntryMap.end())
        return saturate(std::int64_t{previous->second->lastByte} + 1);
    if (appData.logEnabled) {
        const xcp_daq::ClassicLocale numbers(appData.logFile);
        appData.logFile << "failed to find previous odtEntry found : " << odtEntryIndex
                        << "  instead of " << previousIndex;
    }
    return 0;
}

void bind(odt_table_entry& entry) {
    void* variable = nullptr;
    if (HMAPI_DAQ_find_var(entry.name.c_str(), &variable) != 0)
        return;
    entry.hostVar = static_cast<DaqVariable*>(variable);
    mark_own_variable(*entry.hostVar);
    if (appData.logEnabled)
        appData.logFile << "Halmor Variable Name: " << entry.name << " found " << std::endl;
}

// An element by itself: the memory for it is taken before anything is changed.
template <class Map>
typename Map::node_type node_for(typename Map::key_type key) {
    Map map;
    map.try_emplace(std::move(key));
    return map.extract(map.begin());
}

// The element of the node's key, which the node becomes where the map has none. Does not throw.
template <class Map>
typename Map::mapped_type& put(Map& map, typename Map::node_type node) {
    return map.insert(std::move(node)).position->second;
}

using List = xcpDAQList;

} // namespace

int api_xcp_daq::getNumOfHVars(int list) {
    const xcpDAQList* record = find_daq_list(list);
    return record == nullptr ? 0 : static_cast<int>(record->halVarList.size());
}

halVarInfo* api_xcp_daq::getHalVarVecPtr(int list, int index) {
    // A negative number becomes a huge one, which at() refuses as well.
    auto& record = appData.daqList.at(static_cast<std::size_t>(list));
    return &record.halVarList.at(static_cast<std::size_t>(index));
}

void api_xcp_daq::addMeasurement(const std::string& name, int daqNum, int odtNum, int odtEntryIndex,
                                 int size, unsigned char daqMode) {
    xcpDAQList* list = find_daq_list(daqNum);
    if (list == nullptr)
        return;
    auto entry = std::make_unique<odt_table_entry>();
    entry->name = name;
    auto infoNode = node_for<decltype(List::odtTableInfo)>(odtNum);
    auto placeNode = node_for<decltype(List::odtEntryMap)>({odtNum, odtEntryIndex});
    auto nameNode = node_for<decltype(List::odtEntryByName)>(name);
    if (appData.measurementFile.is_open()) {
        const xcp_daq::ClassicLocale numbers(appData.measurementFile);
        appData.measurementFile << name << ',' << daqNum << ',' << odtNum << ',' << odtEntryIndex
                                << ',' << size << ',' << int{daqMode} << std::endl;
    }

    const std::lock_guard lock(XCPDAQAppData_mutex);
    entry->daqNum = daqNum;
    entry->odtNum = odtNum;
    entry->odtEntryIndex = odtEntryIndex;
    entry->size = size;
    entry->firstByte = first_byte(*list, odtNum, odtEntryIndex);
    entry->lastByte = saturate(std::int64_t{entry->firstByte} + size - 1);
    entry->daqMode = daqMode;
    bind(*entry);

    OdtTableInfo& info = put(list->odtTableInfo, std::move(infoNode));
    info.odtLength = std::int64_t{entry->lastByte} + 1;
    ++info.entryCount;

    odt_table_entry* owned = entry.release(); // by the maps, for good
    put(list->odtEntryMap, std::move(placeNode)) = owned;
    put(list->odtEntryByName, std::move(nameNode)) = owned;
}

void api_xcp_daq::addComputeMethod(const std::string& name, int daqNum, int computeInt1,
                                   double factor, double offset, int computeInt2, int byteOrder,
                                   double lowerLimit, double upperLimit) {
    const xcpDAQList* list = find_daq_list(daqNum);
    if (list == nullptr)
        return;
    if (appData.measurementFile.is_open()) {
        const xcp_daq::ClassicLocale numbers(appData.measurementFile);
        appData.measurementFile << std::fixed << std::showpoint << std::setprecision(4) << name
                                << ',' << daqNum << ',' << computeInt1 << ',' << factor << ','
                                << offset << ',' << computeInt2 << ',' << byteOrder << ','
                                << lowerLimit << ',' << upperLimit << std::endl;
    }

    const auto found = list->odtEntryByName.find(name);
    if (found == list->odtEntryByName.end() || found->second == nullptr)
        return;
    odt_table_entry& entry = *found->second;
    entry.computeInt1 = computeInt1;
    entry.factor = factor;
    entry.offset = offset;
    entry.computeInt2 = computeInt2;
    entry.byteOrder = byteOrder;
    entry.lowerLimit = lowerLimit;
    entry.upperLimit = upperLimit;
}
