#include "configuration.h"

#include "host/standin/variable_store.h"
#include "host/standin/variables_file.h"
#include "io/file_error.h"
#include "raw_words.h"

#include <optional>
#include <set>
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

using Definitions = std::vector<halmor_standin::VariableDefinition>;

// One name may stand in several lists.
Definitions listed_variables(const SpecFile& spec) {
    Definitions definitions;
    std::set<std::string> names;
    for (const ListSection& list : spec.lists)
        for (const ListedMeasurement& each : list.measurements)
            if (names.insert(each.variable).second)
                definitions.push_back({each.variable, VariableKind::real, ""});
    return definitions;
}

VariableKinds kinds_of(const Definitions& definitions) {
    VariableKinds kinds;
    for (const auto& [name, kind, owner] : definitions)
        kinds.emplace(name, kind);
    return kinds;
}

void define(const Definitions& definitions, const RawForms& forms) {
    for (const auto& [name, kind, owner] : definitions) {
        const auto form = forms.find(name);
        VariableStore::instance().define(name, kind, owner.empty() ? appData.registeredName : owner,
                                         form == forms.end() ? std::nullopt
                                                             : std::optional(form->second));
    }
}

void add(const MeasurementLine& m) {
    api_xcp_daq::addMeasurement(m.name, m.daqNum, m.odtNum, m.odtEntryIndex, m.size, m.daqMode);
}

void add(const ConversionLine& c) {
    api_xcp_daq::addComputeMethod(c.name, c.daqNum, c.computeInt1, c.factor, c.offset,
                                  c.computeInt2, c.byteOrder, c.lowerLimit, c.upperLimit);
}

} // namespace

SpecFile load_spec(api_xcp_daq& daq, const Options& options) {
    SpecFile spec = read_spec_file(options.spec);
    if (!spec.namesServer && options.has_table())
        spec.faults.emplace_back(options.spec, "no section @XCP_SERVER");
    if (!spec.faults.empty() && !options.check)
        throw spec.faults[0];
    // Without a server the library does not read on; then it knows no lists, only the table.
    if (!read_into_library(daq, options.spec) && spec.faults.empty() && spec.namesServer)
        throw FileError(options.spec, "cannot be read");
    return spec;
}

Configuration configure(const Options& options, SpecFile spec, std::vector<TableLine> table) {
    const Definitions definitions = options.variables
                                        ? halmor_standin::read_variables_file(*options.variables)
                                        : listed_variables(spec);
    const VariableKinds kinds = kinds_of(definitions);
    if (!options.has_table())
        leave_to_library(table, kinds);
    const RawForms forms =
        raw_forms(table, kinds, options.has_table() ? options.table : options.spec);
    define(definitions, forms);
    for (const TableLine& line : library_calls(table, forms))
        std::visit([](const auto& arguments) { add(arguments); }, line.call);
    if (options.saveTable)
        write_measurement_table(*options.saveTable, table);
    return {std::move(spec), std::move(table)};
}

io::UdpEndpoint server_endpoint(const Options& options) {
    try {
        return io::resolve_endpoint(appData.serverName, appData.serverPort);
    } catch (const std::invalid_argument& error) {
        throw FileError(options.spec, std::string("@XCP_SERVER: ") + error.what());
    }
}

io::UdpEndpoint slave_endpoint(const Options& options, const a2l::Xcp& xcp) {
    if (!appData.serverName.empty())
        return server_endpoint(options);
    const std::string& host = xcp.address.empty() ? xcp.hostName : xcp.address;
    if (host.empty() || !xcp.port)
        throw FileError(options.spec,
                        "no section @XCP_SERVER, and the A2L file has no address of the slave");
    try {
        return io::resolve_endpoint(host, *xcp.port);
    } catch (const std::invalid_argument& error) {
        throw FileError(options.spec, std::string("the A2L file's address: ") + error.what());
    }
}

} // namespace task
