#include "capture_file.h"

#include "interruptible_sleep.h"

namespace task {

bool RecordedPace::wait_for(Arrival recorded, const std::stop_token& stop) {
    if (!shift_)
        shift_ = std::chrono::steady_clock::now() - recorded;
    return sleep_until(recorded + *shift_, stop);
}

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
