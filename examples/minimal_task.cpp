// A complete task on the stand-in host: registers, reads a spec file, measures one value for some
// seconds and prints it. Usage: minimal_task SPEC SECONDS

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"

// Of the stand-in; on a bench the Halmor runtime has its own transport and variables.
#include "host/standin/variable_store.h"
#include "io/udp_receiver.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <thread>

using namespace halmor_standin;
using namespace io;

static int measure(const char* spec, double seconds) {
    // 1. Register, before anything else.
    char name[] = "minimal_task";
    int configEvent = 0;
    if (xcp_daq_master_init(name, 10, &configEvent, nullptr, nullptr, nullptr) == -1)
        return 1;

    // 2. The configuration, complete before the worker starts.
    api_xcp_daq daq;
    if (!daq.setSpecFileName(spec, "") || !api_xcp_daq::readSpecs(spec)) {
        std::fprintf(stderr, "%s: not there, or without a server\n", spec);
        return 1;
    }
    Variable& engSpeed =
        VariableStore::instance().define("engSpeed", VariableKind::real, appData.registeredName);
    // DAQ list 0, ODT 0, entry 0: 2 bytes, most significant byte first, 0.125 rpm a bit.
    api_xcp_daq::addMeasurement("engSpeed", 0, 0, 0, 2, MODE_TIMESTAMP);
    api_xcp_daq::addComputeMethod("engSpeed", 0, 0, 0.125, 0.0, 0, 0, 0.0, 8000.0);

    // 3. Decoding on before the source starts: the first frame sets the base of the sample time.
    daq.startWorkerThreads();
    api_xcp_daq::enableDAQProcessing();
    {
        UdpReceiver transport(UdpSocket(parse_endpoint("127.0.0.1:5556")),
                              resolve_endpoint(appData.serverName, appData.serverPort),
                              api_xcp_daq_push_frame);
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    } // 4. The source stops first ...
    while (XCPFrameBuffer.size() > 0)
        std::this_thread::yield(); // ... then the queue runs empty ...
    daq.stopWorkerThreads();       // ... and the worker finishes the frame in its hand.
    api_xcp_daq::disableDAQProcessing();
    api_xcp_daq::stoplog();

    const Sample sample = engSpeed.read();
    std::printf("engSpeed %g at %lld.%09ld s, %llu updates\n", sample.value,
                static_cast<long long>(sample.sampleTime.tv_sec), sample.sampleTime.tv_nsec,
                static_cast<unsigned long long>(sample.updates));
    return 0;
}

int main(int argc, char** argv) {
    try {
        if (argc == 3)
            return measure(argv[1], std::atof(argv[2]));
        std::fprintf(stderr, "usage: minimal_task SPEC SECONDS\n");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "minimal_task: %s\n", error.what());
    }
    return 1;
}
