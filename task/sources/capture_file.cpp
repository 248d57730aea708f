#include "capture_file.h"

#include "recorded_pace.h"

namespace task {

CaptureFile::CaptureFile(const std::string& path, const io::UdpEndpoint& slave, bool recordedPace)
    : path_(path), slave_(slave), recordedPace_(recordedPace), reader_(path) {}

std::string CaptureFile::description() const {
    return "from " + to_text(slave_) + " in " + path_;
}

void CaptureFile::deliver_all(const std::stop_token& stop, DatagramSink& sink) {
    RecordedPace pace;
    for (CapturedFrame frame; reader_.next(frame);) {
        if (stop.stop_requested() || (recordedPace_ && !pace.wait_for(frame.recorded, stop)))
            return;
        if (frame.datagram && frame.datagram->source == slave_)
            sink.take(frame.datagram->payload, frame.recorded);
        else
            ++foreign_;
    }
    foreign_ += reader_.fragments_left();
}

} // namespace task
