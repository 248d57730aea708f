#include "session_file.h"

#include "recorded_pace.h"
#include "xcp/message.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace task {

namespace {

constexpr std::uint8_t no_list = 0xFF; // more than the receiver has: such packets are counted

} // namespace

SessionFile::SessionFile(const std::string& path, const io::UdpEndpoint& slave, bool recordedPace,
                         std::vector<CapturedSession> sessions, std::vector<SessionLayout> layouts)
    : path_(path), slave_(slave), recordedPace_(recordedPace), sessions_(std::move(sessions)),
      layouts_(std::move(layouts)), reader_(path) {}

std::string SessionFile::description() const {
    return "from " + to_text(slave_) + " in " + path_;
}

std::vector<SampleEnd> SessionFile::sample_ends() const {
    std::vector<SampleEnd> ends;
    for (const SessionLayout& layout : layouts_)
        for (const auto& odts : layout.places)
            if (!odts.empty())
                ends.push_back({odts.back().list, odts.back().odt});
    return ends;
}

std::vector<std::string> SessionFile::doubts() const {
    std::set<std::uint16_t> lists;
    for (const SessionLayout& layout : layouts_)
        lists.insert(layout.unknown.begin(), layout.unknown.end());
    std::vector<std::string> lines;
    lines.reserve(lists.size());
    for (const std::uint16_t list : lists)
        lines.push_back(fmt::format("DAQ list {} was not decoded: the capture does not have all of "
                                    "its set-up",
                                    list));
    return lines;
}

// Nothing is waited for between sessions.
void SessionFile::deliver_all(const std::stop_token& stop, DatagramSink& sink) {
    RecordedPace pace;
    for (CapturedFrame frame; !stop.stop_requested() && reader_.next(frame);) {
        const auto& datagram = frame.datagram;
        const bool fromSlave = datagram && datagram->source == slave_;
        if (!fromSlave && !(datagram && datagram->destination == slave_))
            ++foreign_;
        const CapturedSession* const session = session_at(frame.number);
        if (!fromSlave || session == nullptr)
            continue;
        if (session != current_) {
            if (session->begins)
                pace = {};
            enter(*session, frame.recorded, sink);
        }
        if (recordedPace_ && !pace.wait_for(frame.recorded, stop))
            return;
        latest_ = frame.recorded + shift_;
        sink.take(convert(datagram->payload, latest_), latest_);
    }
    foreign_ += reader_.fragments_left();
}

// Null between sessions.
const CapturedSession* SessionFile::session_at(std::uint64_t frame) {
    while (next_ < sessions_.size() && sessions_[next_].lastFrame < frame)
        ++next_;
    return next_ < sessions_.size() && sessions_[next_].firstFrame <= frame ? &sessions_[next_]
                                                                            : nullptr;
}

// Files that were put together may have a later session first; time does not go back for that.
void SessionFile::enter(const CapturedSession& session, Arrival recorded, DatagramSink& sink) {
    if (current_ != nullptr && session.begins) {
        sink.begin_session("");
        shift_ = std::max(latest_ - recorded, Arrival::duration::zero());
    }
    current_ = &session;
    layout_ = &layouts_[session.setUp];
    form_.emplace(layout_->slave, layout_->plan, layout_->firstPids);
}

std::span<const std::uint8_t> SessionFile::convert(std::span<const std::uint8_t> payload,
                                                   Arrival arrival) {
    const std::uint64_t overloads = form_->overloads();
    const std::uint64_t untold = form_->untold();
    const auto own = form_->take(payload, arrival.time_since_epoch());
    overloads_ += form_->overloads() - overloads;
    untold_ += form_->untold() - untold;
    converted_.clear();
    xcp::MessageWalk messages(own);
    for (xcp::Message message{}; messages.next(message);)
        append(message);
    const auto rest = own.last(messages.left()); // a message that is cut off stays one
    converted_.insert(converted_.end(), rest.begin(), rest.end());
    return converted_;
}

// Of a packet that nobody asks for an empty message stays, since its CTR counts.
void SessionFile::append(const xcp::Message& message) {
    const std::size_t begin = converted_.size() + xcp::message_header_size;
    const bool isPacket = message.is_daq() && message.packet.size() >= xcp::identification_size;
    const std::size_t list = isPacket ? message.packet[1] : layout_->places.size();
    if (list < layout_->places.size() && layout_->places[list].empty())
        return xcp::append_message(converted_, message.ctr, {});
    xcp::append_message(converted_, message.ctr, message.packet);
    if (!isPacket)
        return;
    converted_[begin + 1] = no_list;
    if (list >= layout_->places.size() || message.packet[0] >= layout_->places[list].size())
        return;
    const OdtPlace place = layout_->places[list][message.packet[0]];
    converted_[begin] = place.odt;
    converted_[begin + 1] = place.list;
}

} // namespace task
