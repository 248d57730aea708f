#include "source_files.h"

#include "io/file_descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <utility>

namespace a2l {

namespace {

constexpr std::size_t longest_path = 4096; // beyond it there is no such file
constexpr std::string_view utf8_mark = "\xEF\xBB\xBF";

std::pair<std::unique_ptr<char[]>, std::size_t> bytes_of(const std::string& path) {
    const io::FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0)
        throw io::FileError(path, std::strerror(errno));
    if (!S_ISREG(status.st_mode))
        throw io::FileError(path, "no regular file");
    const auto size = static_cast<std::size_t>(status.st_size);
    auto bytes = std::make_unique_for_overwrite<char[]>(size);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = ::read(file.get(), bytes.get() + done, size - done);
        if (count < 0)
            throw io::FileError(path, std::strerror(errno));
        if (count == 0) // it has become shorter
            break;
        done += static_cast<std::size_t>(count);
    }
    return {std::move(bytes), done};
}

// With its mark, or without: half of the bytes of any keyword are 0 then.
bool is_utf16(std::string_view text) {
    const std::string_view start = text.substr(0, 2);
    return start == "\xFF\xFE" || start == "\xFE\xFF" ||
           (start.size() == 2 && start.find('\0') != start.npos);
}

} // namespace

const SourceFile& SourceFiles::read(const std::string& path) {
    if (const SourceFile* known = find(path))
        return *known;
    auto [bytes, size] = bytes_of(path);
    std::string_view text(bytes.get(), size);
    if (is_utf16(text))
        throw io::FileError(path, "UTF-16 is not read; save it as UTF-8");
    if (text.starts_with(utf8_mark))
        text.remove_prefix(utf8_mark.size());
    return files_.emplace(path, SourceFile{path, std::move(bytes), text}).first->second;
}

const SourceFile* SourceFiles::find(const std::string& path) const {
    const auto found = files_.find(path);
    return found == files_.end() ? nullptr : &found->second;
}

std::string SourceFiles::included_path(const Token& include) const {
    std::string name(include.text.substr(0, longest_path));
    std::replace(name.begin(), name.end(), '\\', '/'); // as tools on other systems write it
    const std::filesystem::path folder = std::filesystem::path(file_of(include).path).parent_path();
    return (folder / name).lexically_normal();
}

io::FileError SourceFiles::fault(const Token& where, const std::string& cause) const {
    return {file_of(where).path, where.line, cause};
}

const SourceFile& SourceFiles::file_of(const Token& token) const {
    const auto holds = [place = token.text.data()](const auto& entry) {
        const std::string_view text = entry.second.text;
        return !std::less<>{}(place, text.data()) &&
               !std::less<>{}(text.data() + text.size(), place);
    };
    return std::find_if(files_.begin(), files_.end(), holds)->second;
}

} // namespace a2l
