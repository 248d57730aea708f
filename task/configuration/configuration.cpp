#include "configuration.h"

#include "host/standin/variable_store.h"
#include "host/standin/variables_file.h"
#include "io/file_error.h"

#include <stdexcept>

namespace task {

using halmor_standin::VariableKind;
using halmor_standin::VariableStore;
using io::FileError;

namespace {

bool read_into_library(api_xcp_daq& daq, const std::string& path) {
    const std::size_t nameStart = path.rfind('/') + 1; // 0 when there is no directory
    return daq.setSpecFileName(path.substr(nameStart), path.substr(0, nameStart)) &&
           api_xcp_daq::readSpecs(path.c_str());
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

void add(const MeasurementLine& m) {
    api_xcp_daq::addMeasurement(m.name, m.daqNum, m.odtNum, m.odtEntryIndex, m.size, m.daqMode);
}

void add(const ConversionLine& c) {
    api_xcp_daq::addComputeMethod(c.name, c.daqNum, c.computeInt1, c.factor, c.offset,
                                  c.computeInt2, c.byteOrder, c.lowerLimit, c.upperLimit);
}

} // namespace

Configuration configure(api_xcp_daq& daq, const Options& options) {
    SpecFile spec = read_spec_file(options.spec);
    if (!spec.faults.empty() && !options.check)
        throw spec.faults[0];
    if (!read_into_library(daq, options.spec) && spec.faults.empty())
        throw FileError(options.spec, "cannot be read");
    if (options.variables)
        define_variables(*options.variables);
    else
        define_listed_variables();
    std::vector<TableLine> table = read_measurement_table(options.table);
    for (const TableLine& line : table)
        std::visit([](const auto& arguments) { add(arguments); }, line.call);
    return {std::move(spec), std::move(table)};
}

io::UdpEndpoint server_endpoint(const Options& options) {
    try {
        return io::resolve_endpoint(appData.serverName, appData.serverPort);
    } catch (const std::invalid_argument& error) {
        throw FileError(options.spec, std::string("@XCP_SERVER: ") + error.what());
    }
}

} // namespace task
