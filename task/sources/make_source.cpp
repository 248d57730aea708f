#include "make_source.h"

#include "capture_file.h"
#include "file_source.h"
#include "frame_file.h"
#include "task/configuration/configuration.h"
#include "task/exit_status.h"
#include "udp_source.h"

#include <stdexcept>

namespace task {

namespace {

io::UdpEndpoint listen_endpoint(const Options& options, const io::UdpEndpoint& server) {
    try {
        return options.listen ? io::parse_endpoint(*options.listen)
                              : io::resolve_endpoint("127.0.0.1", server.port);
    } catch (const std::invalid_argument& error) {
        throw Failure(ExitStatus::options, std::string("--listen: ") + error.what());
    }
}

} // namespace

std::unique_ptr<DatagramSource> make_source(const Options& options) {
    if (options.source == SourceKind::replay)
        return std::make_unique<FileSource>(std::make_unique<FrameFile>(options.replay));
    const io::UdpEndpoint server = server_endpoint(options);
    if (options.source == SourceKind::capture)
        return std::make_unique<FileSource>(
            std::make_unique<CaptureFile>(options.capture, server, options.recordedPace));
    return std::make_unique<UdpSource>(listen_endpoint(options, server), server);
}

} // namespace task
