#include "variables_file.h"

#include "io/text_lines.h"

#include <map>
#include <set>
#include <stdexcept>

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

} // namespace

std::vector<VariableDefinition> read_variables_file(const std::string& path) {
    std::vector<VariableDefinition> definitions;
    std::set<std::string> names;
    io::for_each_line(path, [&](std::size_t, const std::string& line) {
        const std::vector<std::string> words = io::words_of(io::without_comment(line, '#'));
        if (words.empty())
            return true;
        definitions.push_back(parse(words));
        if (!names.insert(words[0]).second)
            throw std::invalid_argument("variable defined twice: " + words[0]);
        return true;
    });
    return definitions;
}

} // namespace halmor_standin
