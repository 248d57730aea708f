#include "api_xcp_daq.h"

#include "classic_locale.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr std::size_t line_size = 1024;
constexpr std::size_t token_size = 1024;
constexpr std::size_t token_slots = 4;
constexpr int split_mode = 6;
constexpr std::size_t longest_a2l_word = 255;

constexpr const char* list_keys[MAX_NUMBER_DAQ_LISTS] = {"@LIST1", "@LIST2", "@LIST3", "@LIST4"};

template <class... Text>
void write_log(const Text&... text) {
    if (!appData.logEnabled)
        return;
    const xcp_daq::ClassicLocale numbers(appData.logFile);
    (appData.logFile << ... << text);
}

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// The spec file with the buffers that the host's parser works on. They start empty, because
// messages show the line even when there was none, and the server's tokens are used without being
// counted.
class SpecFile {
  public:
    explicit SpecFile(const char* path) : file(std::fopen(path, "r")) {}

    bool is_open() const { return file != nullptr; }
    std::int16_t first_line(const char* key) { return get_1st_line(file.get(), line, key); }
    std::int16_t next_line() { return get_next_line(file.get(), line); }
    bool at_section_end() const { return line[0] == '$'; }
    const char* text() const { return line; }

    // The first word of the line, cut to `longest` characters; empty when the line is blank.
    std::string first_word(std::size_t longest) const {
        constexpr const char* white_space = " \t\n\v\f\r";
        const char* start = line + std::strspn(line, white_space);
        return {start, std::min(std::strcspn(start, white_space), longest)};
    }

    std::uint64_t split() {
        std::uint64_t unused = 0;
        return parse_line(line, token_slots, token_size, split_mode, tokens[0], &unused);
    }

    void split_at(const char* delimiters) {
        std::uint64_t unused = 0;
        parse_line_delim(line, token_slots, token_size, split_mode, tokens[0], &unused, delimiters);
    }

    const char* token(std::size_t number) const { return tokens[number - 1]; }

  private:
    std::unique_ptr<std::FILE, CloseFile> file;
    char line[line_size] = {};
    char tokens[token_slots][token_size] = {};
};

void read_registration_name(SpecFile& spec) {
    if (spec.first_line("@REG_NAME") <= 0 || spec.at_section_end())
        return;
    const std::string word = spec.first_word(sizeof Registered_name - 1);
    if (word.empty())
        return write_log("@REG_NAME", " expected, but found ", spec.text(), " ");
    std::memcpy(Registered_name, word.c_str(), word.size() + 1);
    appData.registeredName = word;
}

bool read_server(SpecFile& spec) {
    if (spec.first_line("@XCP_SERVER") < 0) {
        write_log("@XCP_SERVER", " expected, but found ", spec.text(), " ");
        return false;
    }
    spec.split_at(" ,:\t\n");
    appData.serverName = spec.token(1);
    appData.serverPort = std::atoi(spec.token(2));
    return true;
}

// A blank line leaves the text as it was.
void take_a2l_word(const SpecFile& spec, std::string& text) {
    if (std::string word = spec.first_word(longest_a2l_word); !word.empty())
        text = std::move(word);
}

void read_a2l_file(SpecFile& spec) {
    if (spec.first_line("@A2L_FILE") > 0)
        take_a2l_word(spec, appData.a2lFileName);
    else
        write_log("@A2L_FILE", " expected found ", spec.text(), " ");
}

void read_a2l_path(SpecFile& spec) {
    if (spec.first_line("@A2L_FILEPATH") > 0 && !spec.at_section_end())
        take_a2l_word(spec, appData.a2lFilePath);
    else
        write_log("@A2L_FILEPATH", " expected found ", spec.text(), " ");
}

bool is_resource(const char* text) {
    return std::strcmp(text, "DAQ") == 0 || std::strcmp(text, "STIM") == 0;
}

void take_header(const SpecFile& spec, std::uint64_t tokens, xcpDAQList& list,
                 const char* previousKey) {
    if (tokens < 3) {
        write_log("Expected at least 3 tokens on received ", tokens, " after ", previousKey, "\n");
        return;
    }
    ++appData.daqCount;
    list.daqName = spec.token(1);
    if (is_resource(spec.token(2))) {
        list.daqResource = spec.token(2);
    } else {
        write_log("Incorrect Resource choice: DAQ or STIM? found ", spec.token(2), "\n",
                  "Defaulting to DAQ", "\n");
        list.daqResource = "DAQ";
    }
    list.triggerName = spec.token(3);
}

// As much of the text as fits; the rest of the field stays zero.
template <std::size_t size>
void fill(char (&field)[size], const char* text) {
    std::memcpy(field, text, strnlen(text, size));
}

// Also when memory runs out in between, the two stay of one length.
void append_to_both(xcpDAQList& list, const halVarInfo& measurement, std::string name) {
    list.halVarList.push_back(measurement);
    try {
        list.measurementAttrs.nameList.push_back(std::move(name));
    } catch (...) {
        list.halVarList.pop_back();
        throw;
    }
}

// Tells whether the line was a measurement.
bool take_measurement(SpecFile& spec, xcpDAQList& list) {
    const std::uint64_t tokens = spec.split();
    if (tokens < 3) {
        write_log("Expected 3 tokens only received ", tokens, "\n");
        return false;
    }
    constexpr std::int32_t default_option = 2;
    const bool sameName = std::strcmp(spec.token(3), "-") == 0;
    halVarInfo measurement;
    fill(measurement.varTag, spec.token(2));
    fill(measurement.varName, spec.token(sameName ? 1 : 3));
    measurement.varOption = tokens == 4 ? std::atoi(spec.token(4)) : default_option;

    std::string name(measurement.varName, strnlen(measurement.varName, sizeof measurement.varName));
    append_to_both(list, measurement, std::move(name));
    return true;
}

// Number of measurements read. Of the results of the host's line functions, 0 stands for a last
// line without a line end: there is a line, but nothing after it.
int read_list(SpecFile& spec, std::size_t index) {
    xcpDAQList& list = appData.daqList[index];
    const std::int16_t header = spec.first_line(list_keys[index]);
    if (header < 0)
        return 0;
    // A last line that ends the section is no header; any other line is taken for one.
    const bool noHeader = header == 0 && spec.at_section_end();
    take_header(spec, noHeader ? 0 : spec.split(), list, index > 0 ? list_keys[index - 1] : "");
    int measurements = 0;
    while (!spec.at_section_end()) {
        const std::int16_t result = spec.next_line();
        if (result >= 0 && !spec.at_section_end() && take_measurement(spec, list))
            ++measurements;
        if (result <= 0)
            break;
    }
    return measurements;
}

} // namespace

bool api_xcp_daq::setSpecFileName(const std::string& fileName, const std::string& filePath) {
    const std::lock_guard lock(XCPDAQAppData_mutex);
    appData.specFileName = fileName;
    appData.specFilePath = filePath;
    appData.specFile = std::ifstream(appData.specFilePath + appData.specFileName);
    return appData.specFile.is_open();
}

bool api_xcp_daq::readSpecs(const char* specPath) {
    SpecFile spec(specPath);
    if (!spec.is_open()) {
        write_log("couldn't open spec_file -", specPath);
        return false;
    }
    read_registration_name(spec);
    if (!read_server(spec))
        return false;
    read_a2l_file(spec);
    read_a2l_path(spec);
    int measurements = 0;
    for (std::size_t index = 0; index < MAX_NUMBER_DAQ_LISTS; ++index)
        measurements += read_list(spec, index);
    write_log(" Found Measurements: ", measurements, "\n");
    return true;
}
