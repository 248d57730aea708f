#include "spec_file_check.h"

#include "file_error.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace task {

namespace {

using halmor_standin::FileError;
using Words = std::vector<std::string>;

Words words_of(const std::string& line) {
    std::istringstream text(line);
    Words words;
    for (std::string word; text >> word;)
        words.push_back(word);
    return words;
}

void check_header(const Words& words) {
    if (words.size() < 3)
        throw std::invalid_argument("a list begins with NAME RESOURCE TRIGGER");
    if (words[1] != "DAQ" && words[1] != "STIM")
        throw std::invalid_argument(
            fmt::format("resource must be DAQ or STIM, found {}", words[1]));
}

void check_measurement(const Words& words) {
    if (words.size() < 3)
        throw std::invalid_argument("expected NAME TAG VARIABLE [OPTION]");
}

void check_server(const Words& words) {
    if (words.empty())
        throw std::invalid_argument("no server");
}

void check_name(const Words& words) {
    constexpr std::size_t longest_name = 49;
    if (words.empty())
        throw std::invalid_argument("no registration name");
    if (words[0].size() > longest_name)
        throw std::invalid_argument(
            fmt::format("registration name longer than {} characters", longest_name));
}

void accept(const Words&) {}

using LineCheck = void (*)(const Words&);

// The checks for a section's first line and for the lines after it.
struct SectionChecks {
    LineCheck first;
    LineCheck others;
};

const std::map<std::string, SectionChecks> sections = {
    {"@REG_NAME", {check_name, accept}},           {"@XCP_SERVER", {check_server, accept}},
    {"@LIST1", {check_header, check_measurement}}, {"@LIST2", {check_header, check_measurement}},
    {"@LIST3", {check_header, check_measurement}}, {"@LIST4", {check_header, check_measurement}},
};

} // namespace

void check_spec_file(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        throw FileError(path, std::strerror(errno));
    std::size_t number = 0;
    bool server = false;
    LineCheck check = accept;
    LineCheck after = accept;
    for (std::string line; std::getline(file, line);) {
        ++number;
        const Words words = words_of(line);
        const auto section =
            words.empty() || line[0] != '@' ? sections.end() : sections.find(words[0]);
        if (section != sections.end()) {
            check = section->second.first;
            after = section->second.others;
            server = server || words[0] == "@XCP_SERVER";
            continue;
        }
        try {
            if (!line.starts_with('$'))
                check(words);
        } catch (const std::invalid_argument& error) {
            throw FileError(path, number, error.what());
        }
        check = line.starts_with('$') ? accept : after;
    }
    if (file.bad())
        throw FileError(path, std::strerror(errno));
    if (!server)
        throw FileError(path, "no section @XCP_SERVER");
}

} // namespace task
