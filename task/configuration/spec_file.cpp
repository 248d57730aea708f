#include "spec_file.h"

#include "io/text_lines.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <string_view>

namespace task {

namespace {

// Of the library's fields and of the host's line buffer.
constexpr std::size_t longest_line = 1023;
constexpr std::size_t longest_task_name = 49;
constexpr std::size_t longest_variable = 80;

constexpr std::string_view list_keys[] = {"@LIST1", "@LIST2", "@LIST3", "@LIST4"};
constexpr std::string_view other_keys[] = {"@REG_NAME", "@XCP_SERVER", "@A2L_FILE",
                                           "@A2L_FILEPATH"};

template <class Keys>
bool contains(const Keys& keys, std::string_view key) {
    return std::find(std::begin(keys), std::end(keys), key) != std::end(keys);
}

// Besides tabs and the carriage return of a line end: editors hide them, and the host's parser
// takes them for part of a word, or for the line's end.
bool has_control_characters(std::string_view line) {
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    return std::any_of(line.begin(), line.end(), [](char character) {
        return static_cast<unsigned char>(character) < ' ' && character != '\t';
    });
}

struct Line {
    std::size_t number;
    std::vector<std::string> words;
};

struct Section {
    std::size_t keyLine;
    std::vector<Line> lines; // up to the "$"
};

class SpecFileReader {
  public:
    SpecFile read(const std::string& path) {
        io::for_each_line(path, [this](std::size_t number, const std::string& line) {
            take_line(number, line);
            return true;
        });
        check_name();
        check_server();
        if (const Line* line = single_line("@A2L_FILE", "no A2L file"))
            file_.a2lFile = line->words[0];
        if (const auto folder = sections_.find("@A2L_FILEPATH"); folder != sections_.end())
            for (const Line& line : folder->second.lines)
                if (file_.a2lFolder.empty() && !line.words.empty())
                    file_.a2lFolder = line.words[0];
        file_.namesServer = sections_.contains("@XCP_SERVER");
        for (std::size_t i = 0; i < std::size(list_keys); ++i)
            read_list(static_cast<int>(i));
        for (const auto& [line, cause] : faults_)
            file_.faults.push_back(line == 0 ? io::FileError(path, cause)
                                             : io::FileError(path, line, cause));
        return std::move(file_);
    }

  private:
    // Line 0 stands for the file as a whole.
    void report(std::size_t line, std::string cause) { faults_.emplace(line, std::move(cause)); }

    // Splits the file into its sections; what stands between them belongs to nobody.
    void take_line(std::size_t number, const std::string& line) {
        if (line.size() > longest_line)
            report(number, fmt::format("line longer than {} characters", longest_line));
        if (has_control_characters(line))
            report(number, "line with control characters");
        const std::vector<std::string> words = io::words_of(line);
        const std::string key = line.starts_with('@') ? words[0] : "";
        if (contains(list_keys, key) || contains(other_keys, key))
            begin_section(number, key);
        else if (line.starts_with('$'))
            current_ = nullptr;
        else if (current_ != nullptr)
            current_->lines.push_back({number, words});
    }

    void begin_section(std::size_t number, const std::string& key) {
        if (current_ != nullptr && inList_)
            report(number, fmt::format("{} begins before the $ that ends the list", key));
        const auto [place, isNew] = sections_.try_emplace(key, Section{number, {}});
        if (!isNew)
            report(number,
                   fmt::format("{} is there already, in line {}", key, place->second.keyLine));
        current_ = isNew ? &place->second : nullptr;
        inList_ = contains(list_keys, key);
    }

    // Only the first line of such a section counts.
    const Line* single_line(const std::string& key, const char* whatIsMissing) {
        const auto section = sections_.find(key);
        if (section == sections_.end())
            return nullptr;
        const auto& lines = section->second.lines;
        if (lines.empty() || lines[0].words.empty()) {
            report(lines.empty() ? section->second.keyLine : lines[0].number, whatIsMissing);
            return nullptr;
        }
        return &lines[0];
    }

    // Address and port may stand together, as in ADDRESS:PORT. The library takes what is no number
    // for port 0.
    void check_server() {
        const Line* line = single_line("@XCP_SERVER", "no server");
        if (line == nullptr)
            return;
        std::string text = fmt::format("{}", fmt::join(line->words, " "));
        std::replace_if(
            text.begin(), text.end(), [](char c) { return c == ':' || c == ','; }, ' ');
        const std::vector<std::string> words = io::words_of(text);
        int port = 0;
        if (words.size() > 1) {
            const char* end = words[1].data() + words[1].size();
            if (std::from_chars(words[1].data(), end, port).ptr != end)
                port = 0;
        }
        if (port < 1 || port > 65535)
            report(line->number, "expected ADDRESS:PORT, with a port from 1 to 65535");
    }

    void check_name() {
        const Line* line = single_line("@REG_NAME", "no registration name");
        if (line != nullptr && line->words[0].size() > longest_task_name)
            report(line->number,
                   fmt::format("registration name longer than {} characters", longest_task_name));
    }

    void read_list(int daqList) {
        const auto found = sections_.find(std::string(list_keys[daqList]));
        if (found == sections_.end())
            return;
        const Section& section = found->second;
        if (section.lines.empty())
            return report(section.keyLine, "a list begins with NAME RESOURCE TRIGGER");
        ListSection list = header(daqList, section.lines[0]);
        for (std::size_t i = 1; i < section.lines.size(); ++i)
            read_measurement(section.lines[i], list);
        file_.lists.push_back(std::move(list));
    }

    ListSection header(int daqList, const Line& line) {
        ListSection list{line.number, daqList, "", "", "", {}};
        if (line.words.size() < 3) {
            report(line.number, "a list begins with NAME RESOURCE TRIGGER");
            return list;
        }
        if (line.words[1] != "DAQ" && line.words[1] != "STIM")
            report(line.number,
                   fmt::format("resource must be DAQ or STIM, found {}", line.words[1]));
        list.name = line.words[0];
        list.resource = line.words[1];
        list.trigger = line.words[2];
        return list;
    }

    void read_measurement(const Line& line, ListSection& list) {
        if (line.words.size() < 3)
            return report(line.number, "expected NAME TAG VARIABLE [OPTION]");
        const std::string& variable = line.words[line.words[2] == "-" ? 0 : 2];
        if (variable.size() > longest_variable)
            report(line.number,
                   fmt::format("variable's name longer than {} characters", longest_variable));
        list.measurements.push_back({line.number, line.words[0], variable});
    }

    SpecFile file_;
    std::multimap<std::size_t, std::string> faults_; // by line
    std::map<std::string, Section> sections_;
    Section* current_ = nullptr;
    bool inList_ = false;
};

} // namespace

SpecFile read_spec_file(const std::string& path) {
    return SpecFileReader().read(path);
}

} // namespace task
