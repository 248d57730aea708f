#include "api_xcp_daq.h"

#include "classic_locale.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>

// ---- configuration report ----

void api_xcp_daq::dumpInfo() {
    if (!appData.logEnabled)
        return;
    std::ofstream& log = appData.logFile;
    const xcp_daq::ClassicLocale numbers(log);
    log << appData.specFileName << std::endl;
    log << appData.specFilePath << std::endl;
    log << "DAQ Count " << appData.daqCount << std::endl;
    log << "Server IP/Host Name: " << appData.serverName << " Port: " << appData.serverPort
        << std::endl;
    log << "FilePath: " << appData.specFilePath << std::endl;
    log << "specFileName " << appData.specFileName << std::endl;
    for (const xcpDAQList& list : appData.daqList) {
        log << " DAQ Name    : " << list.daqName << " " << std::endl;
        log << " DAQ Resource: " << list.daqResource << " " << std::endl;
        log << " DAQ TriggerName : " << list.triggerName << " " << std::endl;
        log << " MeasureMent List information: " << std::endl;
    }
}

// ---- end of logging ----

namespace {

bool in_good_standing(const std::ofstream& file) {
    return !file.fail() && file.is_open();
}

std::string local_time() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%d-%m-%Y %H-%M-%S", &local);
    return text;
}

} // namespace

int api_xcp_daq::startlog() {
    return 0;
}

void api_xcp_daq::stoplog() {
    const std::lock_guard lock(XCPDAQAppData_mutex);
    if (!appData.logEnabled)
        return;
    if (in_good_standing(appData.measurementFile)) {
        appData.measurementFile << "---------" << std::endl;
        appData.measurementFile.close();
    }
    if (in_good_standing(appData.logFile)) {
        appData.logFile << "\nStopped Logging" << local_time() << std::endl;
        appData.logFile.close();
    }
    appData.logEnabled = false;
}

// ---- frame dump ----

bool api_xcp_daq::openFrameDataDump() {
    if (!appData.frameDumpFile.is_open())
        appData.frameDumpFile = std::ofstream(
            "/tmp/api_xcp_frame_daq_" + std::to_string(getpid()) + ".txt", std::ios::app);
    return appData.frameDumpFile.is_open();
}

bool api_xcp_daq::closeFrameDataDump() {
    if (appData.frameDumpFile.is_open())
        appData.frameDumpFile.close();
    return true;
}

// ---- frame replay ----

namespace {

// A read that finds nothing delivers an empty line, not the one before it.
std::string read_line(std::ifstream& file) {
    std::string line;
    std::getline(file, line);
    return line;
}

// Appends the values of one data line and gives their number. The format takes 16 at most; what
// does not match ends the line.
std::int32_t append_values(const std::string& line, std::vector<std::uint8_t>& frame) {
    std::uint16_t v[16];
    const int count = std::sscanf(
        line.c_str(), "%hx,%hx,%hx,%hx,%hx,%hx,%hx,%hx,%hx,%hx,%hx,%hx,%hx,%hx,%hx,%hx\n", &v[0],
        &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7], &v[8], &v[9], &v[10], &v[11], &v[12],
        &v[13], &v[14], &v[15]);
    if (count <= 0)
        return 0;
    for (int i = 0; i < count; ++i)
        frame.push_back(static_cast<std::uint8_t>(v[i]));
    return count;
}

} // namespace

bool api_xcp_daq::openReadFrameData() {
    if (!appData.frameReplayFile.is_open())
        appData.frameReplayFile.open("/specs/api_xcp_frame_daq_data.txt");
    return appData.frameReplayFile.is_open();
}

std::int64_t api_xcp_daq::readFrameData(std::vector<std::uint8_t>* frame, unsigned long /*size*/) {
    std::ifstream& file = appData.frameReplayFile;
    if (file.eof())
        return 0;
    std::int32_t length = 0;
    if (const std::string line = read_line(file); !file.eof())
        std::sscanf(line.c_str(), "%d \n", &length);
    std::int32_t count = 0;
    do
        count += append_values(read_line(file), *frame);
    while (file.good() && count < length); // a stream that has failed delivers nothing more either
    return count;
}
