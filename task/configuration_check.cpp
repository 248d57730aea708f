#include "configuration_check.h"

#include "api_xcp_daq.h"
#include "variable_store.h"
#include "xcp_message.h"

#include <fmt/format.h>

#include <map>
#include <set>
#include <sstream>
#include <utility>

namespace task {

namespace {

using halmor_standin::VariableKind;
using halmor_standin::VariableStore;

bool has_variable(const std::string& name) {
    return VariableStore::instance().find(name) != nullptr;
}

// dumpInfo writes into the log's stream; for once, that leads into a text.
std::string library_report() {
    std::stringbuf text;
    std::ios& log = appData.logFile;
    std::streambuf* file = log.rdbuf(&text);
    const bool enabled = std::exchange(appData.logEnabled, true);
    api_xcp_daq::dumpInfo();
    appData.logEnabled = enabled;
    log.rdbuf(file);
    return text.str();
}

std::string conversion_text(const odt_table_entry& e) {
    if (e.hostVar == nullptr)
        return "filler";
    return fmt::format(
        "{:7}  {}  * {} + {}, {} to {}",
        e.hostVar->kind == static_cast<std::uint16_t>(VariableKind::integer) ? "integer" : "real",
        e.byteOrder == 0 ? "most significant byte first" : "as it stands", e.factor, e.offset,
        e.lowerLimit, e.upperLimit);
}

std::string odt_text(const xcpDAQList& list, std::size_t number, const odt_table_entry& first) {
    const std::int64_t length = list.odtTableInfo.at(first.odtNum).odtLength;
    std::string text = fmt::format("DAQ list {}, ODT {}: {} bytes", number, first.odtNum, length);
    if ((first.daqMode & MODE_TIMESTAMP) != 0)
        text += fmt::format("; in a packet of {}, the timestamp comes first",
                            length + static_cast<std::int64_t>(xcp_daq::timestamp_size));
    return text + "\n";
}

std::string layout_text() {
    std::string text;
    for (std::size_t number = 0; number < appData.daqList.size(); ++number) {
        const xcpDAQList& list = appData.daqList[number];
        int current = -1;
        for (const auto& [place, entry] : list.odtEntryMap) {
            if (std::exchange(current, place.first) != place.first)
                text += odt_text(list, number, *entry);
            text += fmt::format("  bytes {:3} to {:3}  {:24}  {}\n", entry->firstByte,
                                entry->lastByte, entry->name, conversion_text(*entry));
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
            if (const auto* conversion = std::get_if<Conversion>(&line.call))
                converted_.emplace(conversion->daqNum, conversion->name);
        for (const TableLine& line : table)
            if (const auto* measurement = std::get_if<Measurement>(&line.call))
                check(*measurement, line.number);
        return std::move(faults_);
    }

  private:
    void report(std::size_t line, const std::string& fault) {
        faults_.push_back(fmt::format("{}:{}: {}", path_, line, fault));
    }

    void check(const Measurement& m, std::size_t line) {
        check_place(m, line);
        check_order(m, line);
        if (!names_.emplace(m.daqNum, m.name).second)
            report(line, fmt::format("{} is in DAQ list {} twice: only the later one is converted",
                                     m.name, m.daqNum));
        if (has_variable(m.name))
            check_value(m, line);
    }

    void check_place(const Measurement& m, std::size_t line) {
        if (m.daqNum < 0 || m.daqNum >= MAX_NUMBER_DAQ_LISTS)
            report(line, fmt::format("{}: there is no DAQ list {}, only 0 to {}", m.name, m.daqNum,
                                     MAX_NUMBER_DAQ_LISTS - 1));
        if (m.odtNum < 0 || m.odtNum > xcp_daq::last_daq_pid)
            report(line, fmt::format("{}: no DAQ packet has ODT {}, only 0 to {}", m.name, m.odtNum,
                                     xcp_daq::last_daq_pid));
    }

    void check_order(const Measurement& m, std::size_t line) {
        auto& indexes = indexes_[{m.daqNum, m.odtNum}];
        const int expected = indexes.empty() ? 0 : *indexes.rbegin() + 1;
        if (indexes.contains(m.odtEntryIndex))
            report(line, fmt::format("{}: ODT entry {} is there already", m.name, m.odtEntryIndex));
        else if (m.odtEntryIndex > expected)
            report(line, fmt::format("{}: ODT entry {} comes where {} is missing", m.name,
                                     m.odtEntryIndex, expected));
        else if (m.odtEntryIndex < expected)
            report(line, fmt::format("{}: ODT entry {} comes too late, behind {}", m.name,
                                     m.odtEntryIndex, expected - 1));
        indexes.insert(m.odtEntryIndex);
    }

    void check_value(const Measurement& m, std::size_t line) {
        static const std::set<int> sizes = {1, 2, 4, 8};
        if (!sizes.contains(m.size))
            report(line, fmt::format("{}: size {} is none of 1, 2, 4 and 8", m.name, m.size));
        if (!converted_.contains({m.daqNum, m.name}))
            report(line, fmt::format("{}: without a conversion it is always 0", m.name));
    }

    const std::string& path_;
    std::set<std::pair<int, std::string>> converted_;
    std::set<std::pair<int, std::string>> names_;
    std::map<std::pair<int, int>, std::set<int>> indexes_;
    std::vector<std::string> faults_;
};

void check_listed_names(const Options& options, std::vector<std::string>& faults) {
    for (std::size_t number = 0; number < appData.daqList.size(); ++number) {
        const xcpDAQList& list = appData.daqList[number];
        for (const std::string& name : list.measurementAttrs.nameList) {
            if (!list.odtEntryByName.contains(name))
                faults.push_back(fmt::format("{}: {}: {} has no entry in DAQ list {}", options.spec,
                                             name, options.table, number));
            if (!has_variable(name))
                faults.push_back(
                    fmt::format("{}: {}: the host has no such variable", options.spec, name));
        }
    }
}

} // namespace

std::string configuration_text() {
    return library_report() + layout_text();
}

std::vector<std::string> find_faults(const std::vector<TableLine>& table, const Options& options) {
    std::vector<std::string> faults = TableCheck(options.table).faults(table);
    check_listed_names(options, faults);
    return faults;
}

} // namespace task
