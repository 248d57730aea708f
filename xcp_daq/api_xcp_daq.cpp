#include "api_xcp_daq.h"

#include "daq_list.h"

// The exported globals must not depend on the standard library's own choice of size.
static_assert(sizeof(std::atomic<std::int32_t>) == 4);

xcpDAQAppData appData;
std::mutex XCPDAQAppData_mutex;
char Registered_name[50];

__attribute__((weak)) std::int16_t Spec_file_line_count = 0;
__attribute__((weak)) std::int16_t Override_enable = 0;

const std::uint64_t MAX_TIME_DAQ_COUNT_VALUE = 0xFFFFFFFF;
const std::uint64_t BILLION_NSEC = 1000000000;
const float MILLION_NSEC = 1000000.0F;

// Set by the first construction in the process when it is through, in whatever way, and never
// cleared: whoever finds it set finds the record ready.
static std::atomic<bool> XCPDAQ_AppDataInit = false;

// A construction that has no memory is not attempted again either.
struct SetLatchAtEnd {
    ~SetLatchAtEnd() { XCPDAQ_AppDataInit = true; }
};

static void initialise_app_data() {
    appData.daqCount = 0;
    appData.logEnabled = false;
    std::int64_t number = 0;
    for (xcpDAQList& list : appData.daqList) {
        list.listNumber = ++number;
        list.measurementAttrs.nameList.reserve(RESERVE_MEASUREMENT_ATTR_LISTS);
        list.halVarList.reserve(RESERVE_HALMOR_VAR);
    }
    appData.measurementList.reserve(RESERVE_MEASUREMENTS);
}

api_xcp_daq::api_xcp_daq() {
    if (XCPDAQ_AppDataInit)
        return;
    const std::lock_guard lock(XCPDAQAppData_mutex);
    if (XCPDAQ_AppDataInit) // by another thread, meanwhile
        return;
    const SetLatchAtEnd latch;
    initialise_app_data();
}

// An empty list keeps the room that was reserved for it.
template <class List>
static void release(List& list) {
    if (!list.empty())
        List().swap(list);
}

api_xcp_daq::~api_xcp_daq() {
    const std::lock_guard lock(XCPDAQAppData_mutex);
    for (xcpDAQList& list : appData.daqList) {
        release(list.measurementAttrs.nameList);
        list.odtEntryMap.clear(); // odtEntryByName goes on referring to the entries
        release(list.halVarList);
    }
}

int api_xcp_daq::cleanup() {
    return 1;
}

int api_xcp_daq::getNumberDAQLists() {
    return MAX_NUMBER_DAQ_LISTS;
}

int api_xcp_daq::getNumberSTIMList() {
    return MAX_NUMBER_DAQ_LISTS;
}

void api_xcp_daq::getMeasurementInfoFromSpecs(int daqIndex, getMeasurementArgs* measurementArgs) {
    const xcpDAQList* list = xcp_daq::find_daq_list(daqIndex);
    if (list == nullptr)
        return;
    measurementArgs->daqResource = list->daqResource;
    measurementArgs->triggerName = list->triggerName;
    measurementArgs->measurementAttrs = list->measurementAttrs;
}
