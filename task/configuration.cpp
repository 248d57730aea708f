#include "configuration.h"

#include "file_error.h"
#include "spec_file_check.h"
#include "variable_store.h"
#include "variables_file.h"

#include <stdexcept>

namespace task {

using halmor_standin::FileError;
using halmor_standin::VariableKind;
using halmor_standin::VariableStore;

namespace {

void read_spec_file(api_xcp_daq& daq, const std::string& path) {
    check_spec_file(path);
    const std::size_t nameStart = path.rfind('/') + 1; // 0 when there is no directory
    if (!daq.setSpecFileName(path.substr(nameStart), path.substr(0, nameStart)) ||
        !api_xcp_daq::readSpecs(path.c_str()))
        throw FileError(path, "cannot be read");
}

void define_variables(const std::string& path) {
    for (const auto& definition : halmor_standin::read_variables_file(path))
        VariableStore::instance().define(definition.name, definition.kind,
                                         definition.owner.empty() ? appData.registeredName
                                                                  : definition.owner);
}

// One name may stand in several lists.
void define_listed_variables() {
    VariableStore& store = VariableStore::instance();
    for (const xcpDAQList& list : appData.daqList)
        for (const std::string& name : list.measurementAttrs.nameList)
            if (store.find(name) == nullptr)
                store.define(name, VariableKind::real, appData.registeredName);
}

void add(const Measurement& m) {
    api_xcp_daq::addMeasurement(m.name, m.daqNum, m.odtNum, m.odtEntryIndex, m.size, m.daqMode);
}

void add(const Conversion& c) {
    api_xcp_daq::addComputeMethod(c.name, c.daqNum, c.computeInt1, c.factor, c.offset,
                                  c.computeInt2, c.byteOrder, c.lowerLimit, c.upperLimit);
}

} // namespace

std::vector<TableLine> configure(api_xcp_daq& daq, const Options& options) {
    read_spec_file(daq, options.spec);
    if (options.variables)
        define_variables(*options.variables);
    else
        define_listed_variables();
    std::vector<TableLine> table = read_measurement_table(options.table);
    for (const TableLine& line : table)
        std::visit([](const auto& arguments) { add(arguments); }, line.call);
    return table;
}

halmor_standin::UdpEndpoint server_endpoint(const Options& options) {
    try {
        return halmor_standin::resolve_endpoint(appData.serverName, appData.serverPort);
    } catch (const std::invalid_argument& error) {
        throw FileError(options.spec, std::string("@XCP_SERVER: ") + error.what());
    }
}

} // namespace task
