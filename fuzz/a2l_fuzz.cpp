// A2L files: everything that can be asked of one, whatever it holds.

#include "a2l/a2l_file.h"
#include "a2l/tokenizer.h"
#include "io/file_error.h"
#include "memory_file.h"

#include <algorithm>
#include <cmath>

namespace {

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

// Token after token lies further on in the text, and so do the lines.
void tokenize(std::string_view text) {
    const char* end = text.data() + text.size();
    a2l::Tokenizer tokenizer(text.data(), end, 1);
    const char* place = text.data();
    std::uint32_t line = 1;
    for (a2l::Token token = tokenizer.next(); token.kind != a2l::TokenKind::end_of_text;
         token = tokenizer.next()) {
        require(place < tokenizer.place() && tokenizer.place() <= end && line <= token.line);
        require(token.text.data() >= place && token.text.data() + token.text.size() <= end);
        place = tokenizer.place();
        line = token.line;
    }
    require(line <= 1 + std::count(text.begin(), text.end(), '\n'));
}

void ask(const a2l::File& file, const std::string& name) {
    try {
        const auto signal = file.find(name);
        require(!signal || (signal->name == name && std::isfinite(signal->factor) &&
                            std::isfinite(signal->offset) && std::isfinite(signal->lower)));
    } catch (const io::FileError&) {
        // one that cannot be measured
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    tokenize(text);
    const fuzz::MemoryFile memory(text);
    try {
        const a2l::File file(memory.path());
        const std::vector<std::string> names = file.names();
        for (std::size_t i = 0; i < std::min<std::size_t>(names.size(), 20); ++i) {
            ask(file, names[i]);
            std::string last = names[i];
            for (const std::uint32_t elements : file.dimensions(names[i]))
                last.append(1, '[').append(std::to_string(elements - 1)).append(1, ']');
            ask(file, last);
            require(file.near_names(names[i]).at(0).size() == names[i].size());
        }
    } catch (const io::FileError&) {
        // the one way in which a file may be refused
    }
    return 0;
}
