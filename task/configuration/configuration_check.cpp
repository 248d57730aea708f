#include "configuration_check.h"

#include "api_xcp_daq.h"
#include "capture_plan.h"
#include "host/standin/variable_store.h"
#include "integer_conversion.h"
#include "slave_plan.h"
#include "task/output/set_up_report.h"
#include "xcp/message.h"
#include "xcp_master/session_error.h"

#include <fmt/format.h>

#include <map>
#include <set>
#include <utility>

namespace task {

namespace {

using halmor_standin::VariableKind;
using halmor_standin::VariableStore;

bool has_variable(const std::string& name) {
    return VariableStore::instance().find(name) != nullptr;
}

VariableKind kind_of(const std::string& name) {
    return VariableStore::instance().find(name)->kind();
}

std::string header_text(const std::string& server) {
    return fmt::format("server      {}\nregistered  {}\n", server, appData.registeredName);
}

std::string header_text() {
    return header_text(fmt::format("{}:{}", appData.serverName, appData.serverPort));
}

std::string lists_text(const SpecFile& spec) {
    std::string text;
    for (const ListSection& list : spec.lists)
        text += fmt::format("DAQ list {}  {}, {} {}: {} variables\n", list.daqList, list.name,
                            list.resource, list.trigger, list.measurements.size());
    return text;
}

const halmor_standin::Variable& variable_of(const odt_table_entry& e) {
    return *static_cast<const halmor_standin::Variable*>(e.hostVar->object);
}

const char* order_text(bool msbFirst) {
    return msbFirst ? "most significant byte first" : "least significant byte first";
}

std::string conversion_text(const odt_table_entry& e) {
    if (e.hostVar == nullptr)
        return "filler";
    const auto& variable = variable_of(e);
    const char* kind = variable.kind() == VariableKind::integer ? "integer" : "real";
    if (const halmor_standin::RawForm* form = variable.raw_form())
        return fmt::format("{:7}  {}, {}  * {} + {}, {} to {}", kind, type_text(form->number),
                           order_text(form->msbFirst), form->factor, form->offset, form->lower,
                           form->upper);
    return fmt::format("{:7}  {}  * {} + {}, {} to {}", kind, order_text(e.byteOrder == 0),
                       e.factor, e.offset, e.lowerLimit, e.upperLimit);
}

// The later word of a value, which is shown with the first.
bool continues_value(const odt_table_entry& e) {
    return e.hostVar != nullptr && halmor_standin::word_of(*e.hostVar).value_or(0) > 0;
}

std::int32_t last_byte(const odt_table_entry& e) {
    if (e.hostVar == nullptr || variable_of(e).raw_form() == nullptr)
        return e.lastByte;
    return e.firstByte +
           static_cast<std::int32_t>(size_of(variable_of(e).raw_form()->number.type)) - 1;
}

std::string odt_text(const xcpDAQList& list, std::size_t number, const odt_table_entry& first) {
    const std::int64_t length = list.odtTableInfo.at(first.odtNum).odtLength;
    std::string text = fmt::format("DAQ list {}, ODT {}: {} bytes", number, first.odtNum, length);
    if ((first.daqMode & MODE_TIMESTAMP) != 0)
        text += fmt::format("; in a packet of {}, the timestamp comes first",
                            length + static_cast<std::int64_t>(xcp::timestamp_size));
    return text + "\n";
}

// With a plan also where in the slave's memory the value lies, the one of that number in its ODT.
std::string address_text(const xcp_master::DaqPlan& plan, std::size_t list, std::int32_t odt,
                         std::size_t number) {
    if (list >= plan.lists.size())
        return "";
    const auto& value = plan.lists[list].odts[static_cast<std::size_t>(odt)][number];
    return fmt::format("  {} at {:#010x}, extension {}", value.name, value.address,
                       value.extension);
}

std::string layout_text(const xcp_master::DaqPlan& plan) {
    std::string text;
    for (std::size_t number = 0; number < appData.daqList.size(); ++number) {
        const xcpDAQList& list = appData.daqList[number];
        int current = -1;
        std::size_t values = 0; // of the ODT so far
        for (const auto& [place, entry] : list.odtEntryMap) {
            if (continues_value(*entry))
                continue;
            if (std::exchange(current, place.first) != place.first) {
                text += odt_text(list, number, *entry);
                values = 0;
            }
            text += fmt::format("  bytes {:3} to {:3}  {:24}  {}{}\n", entry->firstByte,
                                last_byte(*entry), entry->name, conversion_text(*entry),
                                address_text(plan, number, place.first, values++));
        }
    }
    return text;
}

// What is wrong with the table by itself, line by line.
class TableCheck {
  public:
    explicit TableCheck(const std::string& path) : path_(path) {}

    std::vector<std::string> faults(const std::vector<TableLine>& table) {
        for (const TableLine& line : table)
            if (const auto* conversion = std::get_if<ConversionLine>(&line.call))
                conversions_[{conversion->daqNum, conversion->name}] = {line.number, conversion};
        for (const TableLine& line : table)
            if (const auto* measurement = std::get_if<MeasurementLine>(&line.call))
                check(*measurement, line.number);
        return std::move(faults_);
    }

  private:
    void report(std::size_t line, const std::string& fault) {
        faults_.push_back(fmt::format("{}:{}: {}", path_, line, fault));
    }

    void check(const MeasurementLine& m, std::size_t line) {
        check_place(m, line);
        check_order(m, line);
        if (!names_.emplace(m.daqNum, m.name).second)
            report(line, fmt::format("{} is in DAQ list {} twice: only the later one is converted",
                                     m.name, m.daqNum));
        if (has_variable(m.name))
            check_value(m, line);
    }

    void check_place(const MeasurementLine& m, std::size_t line) {
        if (m.daqNum < 0 || m.daqNum >= MAX_NUMBER_DAQ_LISTS)
            report(line, fmt::format("{}: there is no DAQ list {}, only 0 to {}", m.name, m.daqNum,
                                     MAX_NUMBER_DAQ_LISTS - 1));
        if (m.odtNum < 0 || m.odtNum > xcp::last_daq_pid)
            report(line, fmt::format("{}: no DAQ packet has ODT {}, only 0 to {}", m.name, m.odtNum,
                                     xcp::last_daq_pid));
    }

    void check_order(const MeasurementLine& m, std::size_t line) {
        auto& indexes = indexes_[{m.daqNum, m.odtNum}];
        const int expected = indexes.empty() ? 0 : *indexes.rbegin() + 1;
        if (indexes.contains(m.odtEntryIndex))
            report(line, fmt::format("{}: ODT entry {} is there already", m.name, m.odtEntryIndex));
        else if (m.odtEntryIndex > expected)
            report(line, fmt::format("{}: ODT entry {} comes where {} is missing", m.name,
                                     m.odtEntryIndex, expected));
        else if (m.odtEntryIndex < expected)
            report(line, fmt::format("{}: ODT entry {} comes too late, after {}", m.name,
                                     m.odtEntryIndex, expected - 1));
        indexes.insert(m.odtEntryIndex);
    }

    void check_value(const MeasurementLine& m, std::size_t line) {
        static const std::set<int> sizes = {1, 2, 4, 8};
        if (!sizes.contains(m.size))
            report(line, fmt::format("{}: size {} is none of 1, 2, 4 and 8", m.name, m.size));
        const auto found = conversions_.find({m.daqNum, m.name});
        if (found == conversions_.end())
            return report(line, fmt::format("{}: without a conversion it is always 0", m.name));
        const auto& [conversionLine, conversion] = found->second;
        if (conversion->type || kind_of(m.name) != VariableKind::integer)
            return;
        if (const std::string fault = inexact_integer(m.size, *conversion); !fault.empty())
            report(conversionLine,
                   fmt::format("{}: integer variable, {} bytes: {}", m.name, m.size, fault));
    }

    const std::string& path_;
    // The last one of a measurement counts.
    std::map<std::pair<int, std::string>, std::pair<std::size_t, const ConversionLine*>>
        conversions_;
    std::set<std::pair<int, std::string>> names_;
    std::map<std::pair<int, int>, std::set<int>> indexes_;
    std::vector<std::string> faults_;
};

void check_listed_names(const SpecFile& spec, const Options& options,
                        std::vector<std::string>& faults) {
    for (const ListSection& list : spec.lists)
        for (const auto& [line, measurement, variable] : list.measurements) {
            const auto& entries =
                appData.daqList[static_cast<std::size_t>(list.daqList)].odtEntryByName;
            if (!entries.contains(variable))
                faults.push_back(fmt::format("{}:{}: {}: {} has no entry in DAQ list {}",
                                             options.spec, line, variable, options.table,
                                             list.daqList));
            if (!has_variable(variable))
                faults.push_back(fmt::format("{}:{}: {}: the host has no such variable",
                                             options.spec, line, variable));
        }
}

std::vector<std::string> spec_faults(const SpecFile& spec) {
    std::vector<std::string> faults;
    for (const io::FileError& fault : spec.faults)
        faults.emplace_back(fault.what());
    return faults;
}

CheckedConfiguration check_table(const Options& options, SpecFile spec) {
    CheckedConfiguration checked{"", spec_faults(spec)};
    const Configuration configuration =
        configure(options, std::move(spec), read_measurement_table(options.table));
    for (std::string& fault : TableCheck(options.table).faults(configuration.table))
        checked.faults.push_back(std::move(fault));
    check_listed_names(configuration.spec, options, checked.faults);
    checked.text = header_text() + lists_text(configuration.spec) + layout_text({});
    return checked;
}

// By the A2L file's word, which the slave's may differ from.
void check_plan(const Options& options, const SpecFile& spec, const WantedSlave& wanted,
                CheckedConfiguration& checked) {
    const auto& stated = wanted.stated;
    if (!stated.daq || !stated.maxDto) {
        checked.faults.push_back("the A2L file does not say what the slave can (PROTOCOL_LAYER and "
                                 "DAQ in IF_DATA): without asking it there is no layout");
        return;
    }
    xcp_master::DaqProperties slave = *stated.daq;
    slave.maxDto = *stated.maxDto;
    slave.order = stated.order.value_or(slave.order);
    slave.addressGranularity = stated.addressGranularity.value_or(slave.addressGranularity);
    const auto limits = limits_of(slave);
    try {
        check_form(slave);
        const auto plan = make_plan(wanted.lists, limits);
        const Configuration configuration = configure(options, spec, table_of(plan, spec, wanted));
        for (std::string& fault : TableCheck(options.spec).faults(configuration.table))
            checked.faults.push_back(std::move(fault));
        checked.text += plan_text(plan, limits, stated.events) + layout_text(plan);
    } catch (const xcp_master::SessionError& error) {
        checked.faults.emplace_back(error.what());
    }
}

CheckedConfiguration check_set_up(const Options& options, const SpecFile& spec) {
    CheckedConfiguration checked{header_text(), spec_faults(spec)};
    const a2l::File file(a2l_path(spec, options.spec));
    const WantedSlave wanted = find_wanted(spec, options.spec, file);
    for (const std::string& warning : file.warnings())
        checked.text += "note: " + warning + "\n";
    for (const io::FileError& fault : wanted.faults)
        checked.faults.emplace_back(fault.what());
    if (checked.faults.empty())
        check_plan(options, spec, wanted, checked);
    return checked;
}

// The table is the task's own, so that nothing of it can be wrong.
CheckedConfiguration check_capture(const Options& options, const SpecFile& spec) {
    CheckedConfiguration checked{"", spec_faults(spec)};
    if (!checked.faults.empty())
        return checked;
    const a2l::File file(a2l_path(spec, options.spec));
    const CapturePlan plan = plan_capture(options, spec, file);
    configure(options, plan.spec, plan.table);
    checked.text =
        header_text(to_text(plan.slave)) + capture_text(plan) + layout_text(plan.receiver);
    return checked;
}

} // namespace

CheckedConfiguration check_configuration(api_xcp_daq& daq, const Options& options) {
    SpecFile spec = load_spec(daq, options);
    if (options.has_table())
        return check_table(options, std::move(spec));
    return options.sets_up() ? check_set_up(options, spec) : check_capture(options, spec);
}

} // namespace task
