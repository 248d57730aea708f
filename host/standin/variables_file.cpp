#include "variables_file.h"

#include "file_error.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace halmor_standin {

namespace {

const std::map<std::string, VariableKind> kinds = {{"integer", VariableKind::integer},
                                                   {"real", VariableKind::real}};

VariableDefinition parse(const std::vector<std::string>& words) {
    if (words.size() < 2 || words.size() > 3)
        throw std::invalid_argument("expected NAME KIND [TASK], found " +
                                    std::to_string(words.size()) + " words");
    const auto kind = kinds.find(words[1]);
    if (kind == kinds.end())
        throw std::invalid_argument("kind must be integer or real, found " + words[1]);
    if (words.size() == 3 && words[2].size() > Variable::longest_owner)
        throw std::invalid_argument("task name longer than " +
                                    std::to_string(Variable::longest_owner) + " characters");
    return {words[0], kind->second, words.size() == 3 ? words[2] : ""};
}

std::vector<std::string> words_of(std::string line) {
    line.resize(std::min(line.find('#'), line.size()));
    std::istringstream text(line);
    std::vector<std::string> words;
    for (std::string word; text >> word;)
        words.push_back(word);
    return words;
}

} // namespace

std::vector<VariableDefinition> read_variables_file(const std::string& path) {
    std::ifstream file(path);
    if (!file)
        throw FileError(path, std::strerror(errno));
    std::vector<VariableDefinition> definitions;
    std::set<std::string> names;
    std::size_t number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        const std::vector<std::string> words = words_of(line);
        if (words.empty())
            continue;
        try {
            definitions.push_back(parse(words));
        } catch (const std::invalid_argument& error) {
            throw FileError(path, number, error.what());
        }
        if (!names.insert(words[0]).second)
            throw FileError(path, number, "variable defined twice: " + words[0]);
    }
    if (file.bad())
        throw FileError(path, std::strerror(errno));
    return definitions;
}

} // namespace halmor_standin
