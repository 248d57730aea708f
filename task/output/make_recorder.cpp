#include "make_recorder.h"

#include "csv_recorder.h"
#include "mf4_recorder.h"

#include <algorithm>
#include <cctype>
#include <string_view>

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

std::unique_ptr<Recorder> make_recorder(const std::string& path, const Configuration& configuration,
                                        NoRoom noRoom, std::function<bool()> urgent) {
    if (is_mf4(path))
        return std::make_unique<Mf4Recorder>(path, recorded_lists(configuration), noRoom,
                                             std::move(urgent));
    return std::make_unique<CsvRecorder>(path, noRoom, std::move(urgent));
}

} // namespace task
