#include "options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <vector>

namespace simulated_slave {

namespace {

std::vector<std::string> fault_names() {
    std::vector<std::string> names;
    for (const auto& text : fault_texts)
        names.emplace_back(text.name);
    return names;
}

std::string faults_help() {
    std::string help = "Once in " + std::to_string(datagrams_per_fault) + " datagrams:";
    for (const auto& text : fault_texts)
        help += std::string("\n") + text.name + ": " + text.meaning;
    return help;
}

} // namespace

std::optional<Options> parse_options(int argc, const char* const* argv) {
    Options options;
    std::vector<std::string> faults;
    CLI::App app(
        "An XCP slave that behaves as an A2L file says: a master sets its DAQ lists up, and "
        "it sends known values over UDP.",
        "xcp_simulated_slave");
    app.add_option("A2L", options.a2lFile, "A2L file: signals, events, properties of the slave")
        ->required();
    app.add_option("--listen", options.listen,
                   "ADDRESS:PORT to listen on (default: the A2L file's, else 127.0.0.1:5555)");
    app.add_option("--faults", faults, faults_help())
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::IsMember(fault_names()));
    app.add_option("--seconds", options.seconds, "End after so many seconds")
        ->check(CLI::PositiveNumber);
    app.set_version_flag("--version", "xcp_simulated_slave " XCP_DAQ_VERSION);
    app.footer("Exit status:\n  0  it ended as it should\n  1  wrong options\n"
               "  3  a file is missing or wrong\n  4  the network cannot be used as asked\n"
               "  5  the program itself failed");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return std::nullopt;
    } catch (const CLI::CallForVersion& version) {
        std::cout << version.what() << '\n';
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitStatus::options, std::string(error.what()) + " (see --help)");
    }
    for (const auto& text : fault_texts)
        if (std::find(faults.begin(), faults.end(), text.name) != faults.end())
            options.faults.insert(text.fault);
    return options;
}

} // namespace simulated_slave
