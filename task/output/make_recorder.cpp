#include "make_recorder.h"

#include "csv_recorder.h"
#include "io/file_error.h"
#include "mf4_recorder.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string_view>

#include <sys/stat.h>
#include <unistd.h>

namespace task {

namespace {

bool is_mf4(const std::string& path) {
    constexpr std::string_view ending = ".mf4";
    return path.size() >= ending.size() &&
           std::equal(ending.begin(), ending.end(), path.end() - ending.size(), [](char a, char b) {
               return a == std::tolower(static_cast<unsigned char>(b));
           });
}

} // namespace

void check_recordable(const std::string& path) {
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    const bool exists = access(path.c_str(), F_OK) == 0;
    const std::string place = exists ? path : folder.empty() ? std::string(".") : folder;
    struct stat status {};
    if (access(place.c_str(), W_OK) != 0)
        throw io::FileError(path, std::strerror(errno));
    if (exists && stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode))
        throw io::FileError(path, std::strerror(EISDIR));
}

std::unique_ptr<Recorder> make_recorder(const std::string& path, const Configuration& configuration,
                                        NoRoom noRoom, std::function<bool()> urgent) {
    if (is_mf4(path))
        return std::make_unique<Mf4Recorder>(path, recorded_lists(configuration), noRoom,
                                             std::move(urgent));
    return std::make_unique<CsvRecorder>(path, noRoom, std::move(urgent));
}

} // namespace task
