// A spec file through the library's reader and the stand-in's parser, with the log on.

#include "fresh_record.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::refresh_record();
    appData.logEnabled = true;
    if (!appData.logFile.is_open())
        appData.logFile.open("/dev/null");
    const fuzz::MemoryFile file({reinterpret_cast<const char*>(data), size});
    api_xcp_daq::readSpecs(file.path().c_str());
    for (std::size_t list = 0; list < appData.daqList.size(); ++list) {
        const xcpDAQList& record = appData.daqList[list];
        if (record.halVarList.size() != record.measurementAttrs.nameList.size())
            __builtin_trap();
    }
    api_xcp_daq::dumpInfo();
    return 0;
}
